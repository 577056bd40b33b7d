// The navigation of the logs, by group. Entries are links to the view's
// address for that log, so they open in a new tab and can be shared; the
// current log is marked with aria-current. Narrow windows get one select
// instead, grouped the same way. Both are built once per language and
// updated in place, so a click keeps the keyboard focus.

import {GROUPS, LogsOfGroup} from './catalogue.js';
import {FormatState, WithLog} from './view-state.js';
import {T} from './i18n.js';

function LogSelect() {
  const holder = document.createElement('div');
  holder.className = 'nav-select';
  const label = document.createElement('label');
  label.htmlFor = 'log-select';
  label.textContent = T('nav.select');
  const select = document.createElement('select');
  select.id = 'log-select';
  for (const group of GROUPS) {
    const options = document.createElement('optgroup');
    options.label = T('group.' + group);
    for (const log of LogsOfGroup(group)) options.append(new Option(T('log.' + log.name), log.name));
    select.append(options);
  }
  select.addEventListener('change', () => {
    location.hash = FormatState(WithLog(select.state, select.value));
  });
  holder.append(label, select);
  return holder;
}

export function BuildNav(nav) {
  const content = document.createDocumentFragment();
  content.append(LogSelect());
  for (const group of GROUPS) {
    const section = document.createElement('section');
    section.className = 'nav-group';
    const heading = document.createElement('h2');
    heading.id = 'nav-group-' + group;
    heading.textContent = T('group.' + group);
    const list = document.createElement('ul');
    list.setAttribute('aria-labelledby', heading.id);
    for (const log of LogsOfGroup(group)) {
      const item = document.createElement('li');
      const link = document.createElement('a');
      link.textContent = T('log.' + log.name);
      link.dataset.log = log.name;
      if (log.members) link.classList.add('nav-all');
      item.append(link);
      list.append(item);
    }
    section.append(heading, list);
    content.append(section);
  }
  nav.replaceChildren(content);
}

export function UpdateNav(nav, state) {
  for (const link of nav.querySelectorAll('a[data-log]')) {
    link.href = FormatState(WithLog(state, link.dataset.log));
    if (link.dataset.log === state.log) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  const select = nav.querySelector('#log-select');
  select.state = state;
  select.value = state.log;
}
