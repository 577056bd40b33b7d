// Sessions in the page: sign-in errors in words, the time zone, an expired
// session that returns to the sign-in and then to the same view, reload and
// sign-out, a user who is not an administrator (in the account's language),
// and the lockout after failed sign-ins.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';

import {
  ADMIN, GUEST, LaunchBrowser, Ready, Screenshot, SignIn, StartServer, TableRows,
} from './harness.js';

let server;
let browser;
let page;

before(async () => {
  server = await StartServer({rows: 200});
  browser = await LaunchBrowser();
  page = browser.page;
});

after(async () => {
  await browser?.close();
  await server?.stop();
});

const message = () => page.locator('#login-message');

test('sign-in errors are said in words; the administrator gets the log center', async () => {
  await page.goto(server.url);
  await page.locator('#login-form').waitFor();
  await Screenshot(page, 'sign-in');

  await page.getByRole('button', {name: 'Sign in'}).click();
  assert.equal(await message().innerText(), 'Enter your account and password.');

  await SignIn(page, {account: ADMIN.account, passwd: 'not the password'});
  await message().filter({hasText: 'Wrong account or password.'}).waitFor();
  // The password is selected for typing again.
  assert.equal(await page.evaluate(() => document.activeElement.id), 'login-password');
  await Screenshot(page, 'sign-in-wrong-password');

  await SignIn(page);
  await Ready(page);
  assert.ok(await page.locator('#login-view').isHidden());
  assert.equal(await page.locator('#user-name').innerText(), 'Signed in as admin');
  // The appliance's time zone is named beside the times.
  const zone = await page.locator('#log-table th.col-time .zone').innerText();
  assert.ok(zone.length > 0, 'the time column names the time zone');
  assert.match(await page.locator('#tz-note').innerText(), new RegExp(zone.replace('+', '\\+')));
});

test('an expired session returns to the sign-in, and signing in again restores the view',
     async () => {
       // A server whose sessions end after two idle seconds, and a browser of
       // its own (cookies do not tell ports apart).
       const short = await StartServer({rows: 200, extraArgs: ['--session-idle-ms', '2000']});
       const second = await LaunchBrowser();
       const tab = second.page;
       try {
         await tab.goto(short.url + '#log=system&page=2&size=25');
         await SignIn(tab);
         await Ready(tab);
         const rows = await TableRows(tab);
         assert.ok(rows.length > 0);
         // Past the idle limit even when the last of the page's requests came late.
         await tab.waitForTimeout(3500);
         await tab.getByRole('button', {name: 'Refresh'}).click();
         await tab.locator('#login-message')
             .filter({hasText: 'Your session has expired. Please sign in again.'})
             .waitFor();
         assert.ok(await tab.locator('#app-view').isHidden());
         await Screenshot(tab, 'sign-in-expired');

         await SignIn(tab);
         await Ready(tab);
         assert.match(tab.url(), /#log=system&page=2&size=25$/);
         assert.deepEqual(await TableRows(tab), rows);
         assert.deepEqual(second.problems, []);
       } finally {
         await second.close();
         await short.stop();
       }
     });

test('a reload keeps the session; signing out ends it', async () => {
  await page.goto(server.url + '#log=connection');
  await page.reload();
  await Ready(page);
  assert.equal(await page.locator('#log-title').innerText(), 'Connection');
  await page.getByRole('button', {name: 'Sign out'}).click();
  await message().filter({hasText: 'You have signed out.'}).waitFor();
  await page.reload();
  await page.locator('#login-form').waitFor();
  assert.ok(await page.locator('#app-view').isHidden());
});

test('a user who is not an administrator is told so, in the language of the account',
     async () => {
       await page.goto(server.url);
       await SignIn(page, GUEST);
       await page.locator('#error:not([hidden])').waitFor();
       assert.equal(await page.locator('html').getAttribute('lang'), 'de');
       assert.equal(await page.locator('#error').innerText(),
                    'Ihr Konto darf das Protokollcenter nicht verwenden. ' +
                        'Melden Sie sich als Administrator an.');
       assert.equal((await TableRows(page)).length, 0);
       await page.getByRole('button', {name: 'Abmelden'}).click();
       await page.locator('#login-form').waitFor();
     });

test('repeated wrong passwords lock the sign-in for a while', async () => {
  // A server of its own: the lockout also holds for this client's address.
  const locked = await StartServer({rows: 20});
  const second = await LaunchBrowser();
  const tab = second.page;
  try {
    await tab.goto(locked.url);
    const said = tab.locator('#login-message');
    for (let attempt = 1; attempt <= 5; attempt++) {
      await SignIn(tab, {account: ADMIN.account, passwd: `wrong ${attempt}`});
      await said.filter({hasText: 'Wrong account or password.'}).waitFor();
      await tab.locator('#login-submit:not([disabled])').waitFor();
      await tab.evaluate(() => (document.getElementById('login-message').textContent = ''));
    }
    await SignIn(tab);
    await said.filter({hasText: 'Too many failed sign-ins. Try again in a few minutes.'}).waitFor();
    assert.ok(await tab.locator('#app-view').isHidden());
    await Screenshot(tab, 'sign-in-locked');
  } finally {
    await second.close();
    await locked.stop();
  }
  assert.deepEqual(browser.problems, []);
});
