// The appliance's web API as the page uses it: sign-in and session status on
// /webapi/auth, method calls on /webapi with the request token in a header.
// Every failure comes back as an ApiError with the server's error code, or
// with code 0 when the appliance could not be reached or answered nonsense.

import {byId} from './dom.js';

export const LOG_API = 'QUOR.Core.SyslogClient.Log';
// Searches over whole logs: levels filtered and counted before paging, both
// orders, time buckets.
export const SEARCH_API = 'QUOR.LogCenter.Search';

export const ERR_UNKNOWN_API = 102;
export const ERR_PARAMETER = 120;
export const ERR_SESSION = 110;
export const ERR_FORBIDDEN = 111;
export const ERR_TOKEN = 112;
export const ERR_PASSWORD = 150;
export const ERR_LOCKED = 151;
export const ERR_CLEAR = 5001;
export const ERR_UNREADABLE = 5101;
export const ERR_NETWORK = 0;

const TOKEN_KEY = 'quor.token';

export class ApiError extends Error {
  constructor(code, errors) {
    super(`web API error ${code}`);
    this.code = code;
    this.errors = errors || null;
  }

  // True when the answer means the user must sign in again.
  get needsLogin() {
    return this.code === ERR_SESSION || this.code === ERR_TOKEN;
  }
}

// The token lives in the tab's session storage so that a reload keeps the
// session without exposing the token to other tabs or to later visits.
export function StoredToken() {
  return sessionStorage.getItem(TOKEN_KEY) || '';
}

function StoreToken(token) {
  if (token) sessionStorage.setItem(TOKEN_KEY, token);
  else sessionStorage.removeItem(TOKEN_KEY);
}

// Method parameters travel as form fields that the server decodes as JSON
// when they parse as JSON: texts are therefore sent JSON-quoted (a keyword
// "42" must stay a text), numbers, booleans and objects as they are.
function MethodFields(api, version, method, params) {
  const fields = [['api', api], ['version', String(version)], ['method', method]];
  for (const [name, value] of Object.entries(params)) {
    if (value === undefined || value === null) continue;
    const json = ['number', 'object', 'boolean'].includes(typeof value);
    fields.push([name, typeof value === 'number' ? String(value) :
                       JSON.stringify(json ? value : String(value))]);
  }
  return fields;
}

function MethodBody(api, version, method, params) {
  return new URLSearchParams(MethodFields(api, version, method, params));
}

async function Post(url, body, signal) {
  const headers = {'Content-Type': 'application/x-www-form-urlencoded'};
  const token = StoredToken();
  if (token) headers['X-Quor-Token'] = token;
  try {
    return await fetch(url, {method: 'POST', body, headers, signal, credentials: 'same-origin'});
  } catch (error) {
    if (error.name === 'AbortError') throw error;
    throw new ApiError(ERR_NETWORK);
  }
}

async function Envelope(response) {
  let answer;
  try {
    answer = await response.json();
  } catch {
    throw new ApiError(ERR_NETWORK);
  }
  if (!answer || typeof answer !== 'object') throw new ApiError(ERR_NETWORK);
  if (answer.success) return answer.data === undefined ? null : answer.data;
  const error = answer.error || {};
  throw new ApiError(Number(error.code) || ERR_NETWORK, error.errors);
}

async function Auth(fields) {
  const body = new URLSearchParams(fields);
  return Envelope(await Post('webapi/auth', body));
}

// Signs in; `lang` is sent only when the user chose a language on the page.
export async function Login(account, passwd, lang) {
  const fields = {method: 'login', account, passwd};
  if (lang) fields.lang = lang;
  const data = await Auth(fields);
  StoreToken((data && data.token) || '');
  return data || {};
}

export async function Logout() {
  try {
    await Auth({method: 'logout'});
  } finally {
    StoreToken('');
  }
}

// Whether a session is open ("logged_in"), the appliance's time zone
// ("timezone", "utc_offset") and, for an open session, its "account", "lang"
// and request token, which is kept for the calls that follow.
export async function SessionStatus() {
  const data = (await Auth({method: 'status'})) || {};
  if (data.logged_in && data.token) StoreToken(data.token);
  return data;
}

export function ForgetSession() {
  StoreToken('');
}

export async function Call(method, params, signal) {
  const body = MethodBody(LOG_API, 1, method, params);
  return Envelope(await Post('webapi', body, signal));
}

// The signed-in user's saved views on /webapi/views: "list", "save" (name,
// view), "rename" (name, to), "delete" (name). Fields go as plain text.
export async function Views(method, params = {}) {
  const body = new URLSearchParams({method, ...params});
  return Envelope(await Post('webapi/views', body));
}

export async function Search(method, params, signal) {
  const body = MethodBody(SEARCH_API, 1, method, params);
  return Envelope(await Post('webapi', body, signal));
}

// Runs a method that answers with a file through the browser's own download:
// a form posted into a hidden frame, the token in its body. The browser
// streams the file to disk and shows its progress. An answer that is not a
// file (an error envelope, a refusal) lands in the frame, where `onFailure`
// receives it as an ApiError.
export function DownloadThroughBrowser(method, params, onFailure) {
  const frame = byId('download-frame');
  const form = document.createElement('form');
  form.method = 'post';
  form.action = 'webapi';
  form.target = frame.name;
  form.hidden = true;
  const fields = MethodFields(LOG_API, 1, method, params);
  fields.push(['_token', StoredToken()]);
  for (const [name, value] of fields) {
    const input = document.createElement('input');
    input.type = 'hidden';
    input.name = name;
    input.value = value;
    form.append(input);
  }
  frame.onload = () => {
    let text = '';
    try {
      text = frame.contentDocument?.body?.textContent || '';
    } catch {
      // A frame the page cannot read says nothing more.
    }
    let error = new ApiError(ERR_NETWORK);
    try {
      const answer = JSON.parse(text);
      if (answer && answer.error) error = new ApiError(Number(answer.error.code), answer.error.errors);
    } catch {
      if (text.trim()) error = Object.assign(new ApiError(ERR_NETWORK), {text: text.trim()});
    }
    onFailure(error);
  };
  document.body.append(form);
  form.submit();
  form.remove();
}
