// Words for the web API's error codes, as the page shows them.

import {
  ERR_CLEAR, ERR_FORBIDDEN, ERR_LOCKED, ERR_NETWORK, ERR_PARAMETER, ERR_PASSWORD, ERR_SESSION,
  ERR_TOKEN, ERR_UNKNOWN_API, ERR_UNREADABLE,
} from './api.js';
import {T} from './i18n.js';

// `error` is an ApiError, or {text} for a problem the page found itself.
export function ErrorText(error) {
  if (error && error.text) return error.text;
  switch (error && error.code) {
    case ERR_PASSWORD:
      return T('login.wrong');
    case ERR_LOCKED:
      return T('login.locked');
    case ERR_SESSION:
    case ERR_TOKEN:
      return T('login.expired');
    case ERR_FORBIDDEN:
      return T('error.forbidden');
    case ERR_UNKNOWN_API:
      return T('error.unknownApi');
    case ERR_CLEAR:
      return T('error.clear');
    case ERR_UNREADABLE:
      return T('error.unreadable');
    case ERR_PARAMETER: {
      const detail = (error.errors && typeof error.errors === 'object') ? error.errors : {};
      return T('error.parameter', {name: detail.name || '?', reason: detail.reason || '?'});
    }
    case ERR_NETWORK:
    case undefined:
      return T('error.network');
    default:
      return T('error.other', {code: error.code});
  }
}
