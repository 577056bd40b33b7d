// Interface language: which one is in force, the texts, and their placement
// into the document. The user's choice on the page wins over the session's
// language, which wins over the browser's.

import de from './texts/de.js';
import en from './texts/en.js';

export const LANGUAGES = [
  {code: 'en', name: 'English'},
  {code: 'de', name: 'Deutsch'},
];

const TEXTS = {en, de};
const CHOICE_KEY = 'quor.lang';
let current = 'en';
const listeners = [];

// Maps a language code as the appliance or the browser spell it ("de",
// "de-AT", "ger", "enu") to one of the page's languages.
export function NormalizeLanguage(code) {
  const lower = String(code || '').toLowerCase();
  if (lower.startsWith('de') || lower.startsWith('ger')) return 'de';
  if (lower.startsWith('en')) return 'en';
  return '';
}

// The language the user picked on the page, or "" when they never did.
export function ChosenLanguage() {
  return NormalizeLanguage(localStorage.getItem(CHOICE_KEY));
}

export function ChooseLanguage(code) {
  localStorage.setItem(CHOICE_KEY, code);
  SetLanguage(code);
}

export function PreferredLanguage(sessionLanguage) {
  return ChosenLanguage() || NormalizeLanguage(sessionLanguage) ||
      NormalizeLanguage(navigator.language) || 'en';
}

export function CurrentLanguage() {
  return current;
}

export function SetLanguage(code) {
  current = TEXTS[code] ? code : 'en';
  document.documentElement.lang = current;
  Translate(document);
  for (const listener of listeners) listener(current);
}

export function OnLanguageChange(listener) {
  listeners.push(listener);
}

// The text of `key` with {name} placeholders filled from `vars`; the key
// itself when no language has it, so a missing text shows and is noticed.
export function T(key, vars = {}) {
  const text = TEXTS[current][key] ?? TEXTS.en[key] ?? key;
  return text.replace(/\{(\w+)\}/g, (whole, name) => (name in vars ? String(vars[name]) : whole));
}

export function FormatNumber(value) {
  return new Intl.NumberFormat(current).format(value);
}

// Fills the static texts: data-i18n sets the text content, data-i18n-label
// the accessible name, data-i18n-placeholder and data-i18n-title their
// attributes.
export function Translate(root) {
  for (const element of root.querySelectorAll('[data-i18n]')) {
    element.textContent = T(element.dataset.i18n);
  }
  for (const element of root.querySelectorAll('[data-i18n-label]')) {
    element.setAttribute('aria-label', T(element.dataset.i18nLabel));
  }
  for (const element of root.querySelectorAll('[data-i18n-placeholder]')) {
    element.setAttribute('placeholder', T(element.dataset.i18nPlaceholder));
  }
  for (const element of root.querySelectorAll('[data-i18n-title]')) {
    element.setAttribute('title', T(element.dataset.i18nTitle));
  }
  if (root === document) document.title = T('app.title');
}
