// The log types the page offers, how the navigation groups them, and the
// column layout each class of log is shown in. Layouts follow the export
// documents so that the screen and a downloaded file read the same way.
// Plain-text logs show only their last lines: the page says so when a log
// holds more.

// Each column: `key` is the record key that fills the cell, `label` the text
// key of its heading, `sort` the search API's sort key for this column
// (absent when it cannot sort by it), `kind` a rendering rule for cells that
// are not plain text, `search` true for the fields the search text is found in
// (they are highlighted), `user` true for the column of the entry's user.
const GENERAL = [
  {key: 'level', label: 'col.level', sort: 'level', kind: 'level'},
  {key: 'logtype', label: 'col.log', sort: 'orginalLogType', kind: 'log'},
  {key: 'time', label: 'col.time', sort: 'time', kind: 'time'},
  {key: 'who', label: 'col.user', sort: 'who', search: true, user: true},
  {key: 'descr', label: 'col.event', sort: 'descr', kind: 'message', search: true},
];

const TRANSFER = [
  {key: 'logtype', label: 'col.log', sort: 'orginalLogType', kind: 'log'},
  {key: 'time', label: 'col.time', sort: 'time', kind: 'time'},
  {key: 'ip', label: 'col.ip', sort: 'ip'},
  {key: 'username', label: 'col.user', sort: 'username', search: true, user: true},
  {key: 'cmd', label: 'col.action', sort: 'cmd'},
  {key: 'isdir', label: 'col.fileFolder', sort: 'isdir', kind: 'isdir'},
  {key: 'filesize', label: 'col.size', sort: 'filesize', kind: 'size'},
  {key: 'descr', label: 'col.fileName', sort: 'descr', kind: 'message', search: true},
];

const DISK = [
  {key: 'level', label: 'col.level', sort: 'level', kind: 'level'},
  {key: 'time', label: 'col.time', sort: 'time', kind: 'time'},
  {key: 'model', label: 'col.diskModel', sort: 'model', search: true},
  {key: 'serial', label: 'col.serial', sort: 'serial', search: true},
  {key: 'container', label: 'col.enclosure', sort: 'container', search: true},
  {key: 'slot', label: 'col.position', sort: 'slot', search: true},
  {key: 'msg', label: 'col.event', sort: 'msg', kind: 'message', search: true},
];

// A class says which layout a log uses, whether it has levels to filter and
// count, and whether the clear method empties it (plain-text logs it never
// does, so the page does not offer it).
const CLASSES = {
  db: {columns: GENERAL, levels: true, clearable: true},
  plain: {columns: GENERAL, levels: true, clearable: false},
  transfer: {columns: TRANSFER, levels: false, clearable: true},
  disk: {columns: DISK, levels: true, clearable: true},
};

// Every entry the navigation shows. `members` lists the log types that a
// group entry ("filexfer") stands for; the clear dialog names each of them.
const LOGS = [
  {name: 'system', group: 'system', cls: 'db'},
  {name: 'connection', group: 'system', cls: 'db'},
  {name: 'bkplog', group: 'backup', cls: 'plain'},
  {name: 'copylog', group: 'backup', cls: 'plain'},
  {name: 'netbkplog', group: 'backup', cls: 'db'},
  {name: 'bkpserverlog', group: 'backup', cls: 'plain'},
  {
    name: 'filexfer',
    group: 'transfer',
    cls: 'transfer',
    members: ['ftpxfer', 'kyrfmxfer', 'webdavxfer', 'smbxfer', 'afpxfer', 'tftpxfer'],
  },
  {name: 'ftpxfer', group: 'transfer', cls: 'transfer'},
  {name: 'kyrfmxfer', group: 'transfer', cls: 'transfer'},
  {name: 'webdavxfer', group: 'transfer', cls: 'transfer'},
  {name: 'smbxfer', group: 'transfer', cls: 'transfer'},
  {name: 'afpxfer', group: 'transfer', cls: 'transfer'},
  {name: 'tftpxfer', group: 'transfer', cls: 'transfer'},
  {name: 'disk', group: 'disk', cls: 'disk'},
];

export const GROUPS = ['system', 'backup', 'transfer', 'disk'];

export const DEFAULT_LOG = 'system';

// The level words the search API takes, in the order the page shows them, with
// the word records carry and the key of the answer's count for each.
export const LEVELS = [
  {name: 'info', record: 'info', count: 'info'},
  {name: 'warning', record: 'warn', count: 'warn'},
  {name: 'err', record: 'err', count: 'err'},
];

export function FindLog(name) {
  return LOGS.find((log) => log.name === name) || null;
}

export function LogsOfGroup(group) {
  return LOGS.filter((log) => log.group === group);
}

export function ClassOf(log) {
  return CLASSES[log.cls];
}

// The log types a clear of `log` empties, for naming them to the user.
export function MembersOf(log) {
  return log.members || [log.name];
}

// The record key of the entry's user in `log`, or "" when its entries have
// none.
export function UserKey(log) {
  return ClassOf(log).columns.find((column) => column.user)?.key || '';
}

// True when `sort` is a key the server accepts for this log.
export function IsSortable(log, sort) {
  return ClassOf(log).columns.some((column) => column.sort === sort);
}
