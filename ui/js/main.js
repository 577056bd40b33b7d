// The page's start: find out whether a session is open, then show the sign-in
// form or the log center, and move between the two as sessions begin and end.

import * as api from './api.js';
import {byId} from './dom.js';
import {
  ChooseLanguage, CurrentLanguage, LANGUAGES, OnLanguageChange, PreferredLanguage, SetLanguage, T,
} from './i18n.js';
import {LoginView} from './login-view.js';
import {LogView} from './log-view.js';

// What the page keeps of a login or status answer.
function SessionInfo(data) {
  return {
    user: data.account || '',
    lang: data.lang || '',
    timeZone: data.timezone || '',
    utcOffset: Number.isInteger(data.utc_offset) ? data.utc_offset : null,
  };
}

function FillLanguageSelects() {
  for (const select of document.querySelectorAll('.lang-select')) {
    select.replaceChildren(...LANGUAGES.map(({code, name}) => {
      const option = new Option(name, code);
      option.lang = code;
      return option;
    }));
    select.value = CurrentLanguage();
    select.addEventListener('change', () => ChooseLanguage(select.value));
  }
  OnLanguageChange((code) => {
    for (const select of document.querySelectorAll('.lang-select')) select.value = code;
  });
}

class Page {
  constructor() {
    this.login = new LoginView(() => this.Enter());
    this.logs = new LogView((error) => this.ToLogin(error));
    this.user = '';
    byId('logout').addEventListener('click', () => this.Logout());
    OnLanguageChange(() => this.ShowUser());
  }

  ShowUser() {
    byId('user-name').textContent = this.user ? T('header.user', {user: this.user}) : '';
  }

  // Opens the log center for the session that is now open.
  async Enter(known) {
    let info = known;
    if (!info) {
      try {
        info = SessionInfo(await api.SessionStatus());
      } catch (error) {
        if (error instanceof api.ApiError && error.needsLogin) {
          this.ToLogin(error);
          return;
        }
        info = SessionInfo({});
      }
    }
    this.user = info.user;
    SetLanguage(PreferredLanguage(info.lang));
    this.ShowUser();
    byId('boot').hidden = true;
    byId('login-view').hidden = true;
    byId('app-view').hidden = false;
    this.logs.Start(info);
  }

  // Back to the sign-in form; `reason` is an ApiError or a text key.
  ToLogin(reason) {
    this.logs.Stop();
    api.ForgetSession();
    const dialog = byId('clear-dialog');
    if (dialog.open) dialog.close();
    byId('boot').hidden = true;
    byId('app-view').hidden = true;
    byId('login-view').hidden = false;
    this.login.Show(reason);
  }

  async Logout() {
    try {
      await api.Logout();
    } catch {
      // The session ends on this side whatever the server answered.
    }
    this.user = '';
    this.ToLogin('login.signedOut');
  }

  // A reload, or a new tab, finds the session through the status call,
  // which hands back the request token.
  async Start() {
    let data;
    try {
      data = await api.SessionStatus();
    } catch (error) {
      this.ToLogin(error instanceof api.ApiError && error.needsLogin ? '' : error);
      return;
    }
    if (!data.logged_in || !api.StoredToken()) {
      this.ToLogin('');
      return;
    }
    await this.Enter(SessionInfo(data));
  }
}

SetLanguage(PreferredLanguage(''));
FillLanguageSelects();
new Page().Start();
