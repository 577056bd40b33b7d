// A second process that writes a store the way another service of the
// appliance would: Debian's sqlite3 shell, fed statements one at a time, each
// answered with a marker once it is done, so a test knows when a row is in.

import {spawn} from 'node:child_process';

export class StoreWriter {
  constructor(database) {
    this.child = spawn('sqlite3', ['-batch', database], {stdio: ['pipe', 'pipe', 'pipe']});
    this.waiters = [];
    this.output = '';
    this.errors = '';
    this.child.stderr.on('data', (chunk) => (this.errors += chunk));
    this.child.stdout.on('data', (chunk) => {
      this.output += chunk;
      let at;
      while ((at = this.output.indexOf('\n')) >= 0) {
        const line = this.output.slice(0, at);
        this.output = this.output.slice(at + 1);
        const match = /^done (\d+)$/.exec(line);
        if (match) this.waiters.shift()(Number(match[1]));
      }
    });
    this.exited = new Promise((resolve) => this.child.on('exit', resolve));
    // Waits for readers rather than failing: the server reads between writes.
    this.child.stdin.write('.timeout 20000\n');
    this.sequence = 0;
  }

  // Runs `sql` (statements ending in ";") and resolves once it is done.
  Run(sql) {
    const mark = ++this.sequence;
    return new Promise((resolve) => {
      this.waiters.push(resolve);
      this.child.stdin.write(`${sql}\nSELECT 'done ${mark}';\n`);
    });
  }

  // Appends a system-log row with message `msg` one second after the newest.
  Append(msg, level = 'info') {
    return this.Run(`INSERT INTO logs (time, level, username, msg) SELECT ` +
                    `coalesce(max(time), 0) + 1, '${level}', 'writer', '${msg}' FROM logs;`);
  }

  // Takes the store's write lock (`mode` IMMEDIATE lets readers in, EXCLUSIVE
  // shuts them out once a row is written, in a store with a rollback journal),
  // writing `msg` inside; resolves once the lock is held, with `released`, a
  // promise of its end `ms` later.
  async Hold(ms, mode, msg) {
    await this.Run(`BEGIN ${mode};`);
    if (msg) await this.Append(msg);
    const released = new Promise((resolve) => setTimeout(resolve, ms))
        .then(() => this.Run('COMMIT;'));
    return {released};
  }

  async Close() {
    this.child.stdin.end('.quit\n');
    await this.exited;
  }
}
