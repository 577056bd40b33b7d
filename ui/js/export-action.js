// Export HTML and CSV: the entries the filters select, every page, through the
// browser's own download. The export is the first module's, which names its
// filters in its own words: they are translated here and only here.

import * as api from './api.js';
import {ClassOf, MembersOf} from './catalogue.js';

// The first module's export parameters for the view's filters (`filters`:
// {levels, keyword, from, to} with times in epoch seconds, 0 for none).
export function ExportParams(log, filters) {
  const params = {logtype: MembersOf(log).join(',')};
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
