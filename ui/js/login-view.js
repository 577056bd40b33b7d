// The sign-in form. It says in words why a sign-in failed and why the user
// is back at it (session expired, signed out).

import * as api from './api.js';
import {byId} from './dom.js';
import {ChosenLanguage, T} from './i18n.js';
import {ErrorText} from './messages.js';

export class LoginView {
  // `onSignedIn()` runs after a successful sign-in.
  constructor(onSignedIn) {
    this.form = byId('login-form');
    this.message = byId('login-message');
    this.form.addEventListener('submit', async (event) => {
      event.preventDefault();
      await this.Submit(onSignedIn);
    });
  }

  // Shows the form with an optional message key or error.
  Show(reason) {
    byId('login-password').value = '';
    if (reason instanceof Error) this.Say(ErrorText(reason));
    else if (reason) this.Say(T(reason));
    else this.Say('');
    const account = byId('login-account');
    (account.value ? byId('login-password') : account).focus();
  }

  Say(text) {
    this.message.textContent = text;
    this.message.hidden = !text;
  }

  async Submit(onSignedIn) {
    const account = byId('login-account').value.trim();
    const passwd = byId('login-password').value;
    if (!account || !passwd) {
      this.Say(T('login.missing'));
      (account ? byId('login-password') : byId('login-account')).focus();
      return;
    }
    const button = byId('login-submit');
    button.disabled = true;
    button.textContent = T('login.busy');
    try {
      await api.Login(account, passwd, ChosenLanguage());
      this.Say('');
      await onSignedIn();
    } catch (error) {
      this.Say(ErrorText(error));
      byId('login-password').select();
      byId('login-password').focus();
    } finally {
      button.disabled = false;
      button.textContent = T('login.submit');
    }
  }
}
