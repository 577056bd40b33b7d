// Saved views: kept per user on the appliance (not in the browser), opened
// with their relative range still relative, renamed and deleted.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';

import {AddressState, ApiClient, AxeViolations, GUEST, OpenLogCenter, Ready} from './harness.js';

let center;
before(async () => {
  center = await OpenLogCenter({rows: 200});
});
after(() => center?.close());

// A call of /webapi/views as `client` (an ApiClient signed in).
async function Views(client, method, params = {}) {
  const response = await fetch(client.url + 'webapi/views', {
    method: 'POST',
    body: new URLSearchParams({method, ...params}),
    headers: {'X-Quor-Token': client.token, Cookie: client.cookie},
  });
  return response.json();
}

test('a view saved, listed, opened with its relative range, renamed and deleted', async () => {
  const {page, server, api} = center;
  const saved = 'log=system&level=err&from=-2h&q=started&sort=who';
  await page.goto(server.url + '#' + saved + '&page=2');
  await Ready(page);
  await page.getByRole('button', {name: 'Saved views'}).click();
  const dialog = page.getByRole('dialog', {name: 'Saved views'});
  await dialog.waitFor();
  await dialog.getByText('No saved views yet.').waitFor();
  await dialog.getByRole('button', {name: 'Save'}).click();
  await dialog.getByText('Give the view a name.').waitFor();
  await dialog.getByLabel('Name of the view').fill('Errors lately');
  await dialog.getByRole('button', {name: 'Save'}).click();
  await dialog.getByRole('link', {name: 'Errors lately'}).waitFor();
  assert.deepEqual(await AxeViolations(page), []);
  await dialog.getByLabel('Name of the view').fill('Disk');
  await page.keyboard.press('Escape');

  // Kept on the appliance for this user: another session of the user sees it, without page.
  const listed = await Views(api, 'list');
  assert.deepEqual(listed.data.views, [{name: 'Errors lately', view: saved}]);

  await page.goto(server.url + '#log=disk');
  await Ready(page);
  await page.getByRole('button', {name: 'Saved views'}).click();
  await dialog.getByRole('link', {name: 'Errors lately'}).click();
  await Ready(page);
  const state = await AddressState(page);
  assert.equal(state.from, '-2h');
  assert.equal(state.log, 'system');
  assert.equal(await page.locator('#date-from').inputValue(), '-2h');

  // Rename; a name already taken is refused in words; delete.
  assert.equal((await Views(api, 'save', {name: 'Other', view: 'log=disk'})).success, true);
  await page.getByRole('button', {name: 'Saved views'}).click();
  await dialog.getByRole('button', {name: 'Rename: Errors lately'}).click();
  await dialog.getByLabel('New name for “Errors lately”').fill('Other');
  await dialog.getByRole('button', {name: 'Rename', exact: true}).click();
  await dialog.getByText('A view of that name exists already.').waitFor();
  await dialog.getByLabel('New name for “Errors lately”').fill('Recent errors');
  await dialog.getByRole('button', {name: 'Rename', exact: true}).click();
  await dialog.getByRole('link', {name: 'Recent errors'}).waitFor();
  await dialog.getByRole('button', {name: 'Delete: Other'}).click();
  await dialog.getByText('Deleted view “Other”.').waitFor();
  assert.deepEqual((await Views(api, 'list')).data.views.map((view) => view.name), ['Recent errors']);
  await page.keyboard.press('Escape');

  // Another user has views of their own; a call without the request token is refused.
  const guest = new ApiClient(server.url);
  await guest.Login(GUEST);
  assert.deepEqual((await Views(guest, 'list')).data.views, []);
  assert.equal((await Views({...guest, token: 'wrong'}, 'list')).error.code, 112);
  assert.equal((await Views(guest, 'save', {name: 'x', view: 'a\nb'})).error.errors.reason,
               'condition');
  // At most 100 views a user; saving over an existing name is still allowed at the limit.
  for (let i = 0; i < 100; ++i) {
    assert.equal((await Views(guest, 'save', {name: `v${i}`, view: 'log=disk'})).success, true);
  }
  assert.equal((await Views(guest, 'save', {name: 'one more', view: 'log=disk'})).error.errors.reason,
               'limit');
  assert.equal((await Views(guest, 'save', {name: 'v7', view: 'log=system'})).success, true);
});
