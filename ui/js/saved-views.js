// Saved views: the current view (log, levels, range, search, sort) kept
// under a name for the signed-in user on the appliance, listed, opened,
// renamed and deleted. A view is the address without page and entry, so a
// relative range ("-15m", "24 hours") stays relative.

import * as api from './api.js';
import {byId} from './dom.js';
import {T} from './i18n.js';
import {ErrorText} from './messages.js';
import {FormatState} from './view-state.js';

export class SavedViews {
  // `view` gives `state`; `onAuthLost(error)` ends the session.
  constructor(view, onAuthLost) {
    this.view = view;
    this.onAuthLost = onAuthLost;
    this.dialog = byId('views-dialog');
    this.list = byId('views-list');
    this.message = byId('views-message');
    byId('views-open').addEventListener('click', () => this.Open());
    byId('views-close').addEventListener('click', () => this.dialog.close());
    byId('views-save').addEventListener('submit', (event) => {
      event.preventDefault();
      this.Save(byId('view-name').value.trim());
    });
    this.dialog.addEventListener('close', () => byId('views-open').focus());
  }

  // The view to keep: the address of the state without page and entry.
  Current() {
    return FormatState({...this.view.state, page: 1, entry: ''}).replace(/^#/, '');
  }

  async Open() {
    this.Say('');
    byId('view-name').value = '';
    this.dialog.showModal();
    byId('view-name').focus();
    await this.Refresh();
  }

  Say(text) {
    this.message.textContent = text;
  }

  // Runs a call; false (said in the dialog) when it failed.
  async Call(method, params) {
    try {
      return (await api.Views(method, params)) || {};
    } catch (error) {
      if (error instanceof api.ApiError && error.needsLogin) {
        this.dialog.close();
        this.onAuthLost(error);
      } else {
        const reason = error.errors && error.errors.reason;
        this.Say(['exists', 'limit'].includes(reason) ? T('views.' + reason) : ErrorText(error));
      }
      return null;
    }
  }

  async Refresh() {
    const answer = await this.Call('list');
    if (!answer) return;
    const views = answer.views || [];
    if (views.length === 0) {
      const none = document.createElement('li');
      none.className = 'hint';
      none.textContent = T('views.none');
      this.list.replaceChildren(none);
      return;
    }
    this.list.replaceChildren(...views.map(({name, view}) => this.Item(name, view)));
  }

  Item(name, view) {
    const item = document.createElement('li');
    const open = document.createElement('a');
    open.href = '#' + view;
    open.textContent = name;
    open.addEventListener('click', () => this.dialog.close());
    const button = (key, onClick) => {
      const control = document.createElement('button');
      control.type = 'button';
      control.textContent = T(key);
      control.setAttribute('aria-label', `${T(key)}: ${name}`);
      control.addEventListener('click', onClick);
      return control;
    };
    const rename = button('views.rename', () => this.StartRename(item, name));
    const remove = button('views.delete', async () => {
      if (await this.Call('delete', {name})) {
        this.Say(T('views.deleted', {name}));
        await this.Refresh();
      }
    });
    item.append(open, rename, remove);
    return item;
  }

  StartRename(item, name) {
    const form = document.createElement('form');
    form.className = 'views-rename';
    const input = document.createElement('input');
    input.value = name;
    input.maxLength = 80;
    input.setAttribute('aria-label', T('views.newName', {name}));
    const confirm = document.createElement('button');
    confirm.type = 'submit';
    confirm.textContent = T('views.rename');
    form.append(input, confirm);
    form.addEventListener('submit', async (event) => {
      event.preventDefault();
      const to = input.value.trim();
      if (!to) return this.Say(T('views.empty'));
      if (await this.Call('rename', {name, to})) {
        this.Say(T('views.renamed', {name: to}));
        await this.Refresh();
      }
    });
    item.replaceChildren(form);
    input.focus();
    input.select();
  }

  async Save(name) {
    if (!name) {
      this.Say(T('views.empty'));
      byId('view-name').focus();
      return;
    }
    if (await this.Call('save', {name, view: this.Current()})) {
      this.Say(T('views.saved', {name}));
      byId('view-name').value = '';
      await this.Refresh();
    }
  }
}
