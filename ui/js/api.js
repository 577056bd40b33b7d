// The appliance's web API as the page uses it: sign-in and session status on
// /webapi/auth, method calls on /webapi with the request token in a header.
// Every failure comes back as an ApiError with the server's error code, or
// with code 0 when the appliance could not be reached or answered nonsense.

export const LOG_API = 'QUOR.Core.SyslogClient.Log';

export const ERR_UNKNOWN_API = 102;
export const ERR_PARAMETER = 120;
export const ERR_SESSION = 110;
export const ERR_FORBIDDEN = 111;
export const ERR_TOKEN = 112;
export const ERR_PASSWORD = 150;
export const ERR_LOCKED = 151;
export const ERR_CLEAR = 5001;
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
// "42" must stay a text), numbers as they are.
function MethodBody(api, version, method, params) {
  const body = new URLSearchParams();
  body.set('api', api);
  body.set('version', String(version));
  body.set('method', method);
  for (const [name, value] of Object.entries(params)) {
    if (value === undefined || value === null) continue;
    body.set(name, typeof value === 'number' ? String(value) : JSON.stringify(String(value)));
  }
  return body;
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

// Runs a method that answers with a file. Resolves to {blob, fileName}; an
// answer in the JSON envelope instead of a file is turned into its error.
export async function Download(method, params) {
  const body = MethodBody(LOG_API, 1, method, params);
  const response = await Post('webapi', body);
  const type = response.headers.get('Content-Type') || '';
  const disposition = response.headers.get('Content-Disposition') || '';
  if (type.startsWith('application/json') || !/attachment/i.test(disposition)) {
    await Envelope(response);
    throw new ApiError(ERR_NETWORK);
  }
  const match = /filename="?([^";]+)"?/i.exec(disposition);
  const blob = await response.blob();
  return {blob, fileName: match ? match[1] : 'log'};
}
