// Export HTML and CSV: the entries the filters select, every page, through the
// browser's own download. The export is the first module's, which names its
// filters in its own words: they are translated here and only here.

import * as api from './api.js';
import {ClassOf, MembersOf} from './catalogue.js';

// The first module's export parameters for the view's filters (`filters`:
// {levels, keyword, hideLogs, from, to} with times in epoch seconds, 0 for
// none); the logs left out are not named.
export function ExportParams(log, filters) {
  const hidden = filters.hideLogs || [];
  const params = {logtype: MembersOf(log).filter((name) => !hidden.includes(name)).join(',')};
  if (ClassOf(log).levels) params.level = filters.levels.join(',');
  if (filters.keyword) params.keyword = filters.keyword;
  if (filters.from) params.date_from = filters.from;
  if (filters.to) params.date_to = filters.to;
  return params;
}

// Starts the download; `onFailure(error)` hears an answer that is not a file.
export function Export(log, filters, format, onFailure) {
  api.DownloadThroughBrowser('export', {...ExportParams(log, filters), format}, onFailure);
}
