// The change history as an administrator reads it (GET /api/history): one
// list item per entry with when, who, what and each value before and after
// in words, and an Undo button on an entry that can still be undone. Shared
// by the history screen and the history sections of the group and user
// screens.
import * as api from './api.js';
import { t } from './texts.js';
import { el } from './ui.js';

// Whether the server keeps a history (a server without the endpoint keeps
// the screen and the sections hidden).
let available = null;
export async function historyAvailable() {
  if (available !== null) return available;
  try {
    await api.json('/api/history?limit=1');
    available = true;
  } catch (e) {
    if (e.answer !== 'ERROR:HTTP404') return false;  // asked again next time
    available = false;
  }
  return available;
}

// One page of entries, newest first: {entries, next}.
export function fetchEntries(filters, before, limit) {
  const q = new URLSearchParams();
  for (const [k, v] of Object.entries(filters)) if (v) q.set(k, v);
  if (before) q.set('before', String(before));
  if (limit) q.set('limit', String(limit));
  return api.json(`/api/history?${q}`);
}

// The update stamp changes with every update and the entry has its time:
// not repeated in words.
const STAMP = new Set(['UPD_YMD', 'UPD_HMS', 'UPD_USR']);

// A stored value as words: dates as dates, passwords never.
function shown(column, value) {
  if (value === null || value === undefined || value === '') return t('history.empty');
  if (column === 'PASSWORD' || /_PASS$|_PS$/.test(column)) return t('history.masked');
  if (/_YMD$/.test(column) && /^\d{8}$/.test(value)) return api.showYmd(value);
  if (column === 'UPD_KBN' && /^[123]$/.test(value)) return t(`history.kbn.${value}`);
  return String(value);
}

// A table's work copy is named as the table.
const label = (kind, name) => {
  const key = `history.${kind}.${kind === 'table' ? name.replace(/_WORK$/i, '') : name}`;
  const text = t(key);
  return text === key ? name : text;  // a table or column of its own: its name
};

// The lines of words for one entry's changed rows.
export function describeChanges(changes = []) {
  return changes.flatMap((c) => {
    const table = label('table', c.table);
    if (c.action === 'insert') {
      const name = c.after?.NAME_KJ || c.after?.SEC_NM;
      return t('history.added', table, name ? `${c.key} (${name})` : c.key);
    }
    if (c.action === 'delete') {
      const name = c.before?.NAME_KJ || c.before?.SEC_NM;
      return t('history.removed', table, name ? `${c.key} (${name})` : c.key);
    }
    const columns = [...new Set([...Object.keys(c.before ?? {}), ...Object.keys(c.after ?? {})])]
      .filter((col) => !STAMP.has(col));
    if (!columns.length) return [];
    const parts = columns.map((col) => t('history.change', label('col', col), shown(col, c.before?.[col]),
      shown(col, c.after?.[col])));
    return t('history.changed', table, c.key, parts.join(', '));
  });
}

export function operationOf(entry) {
  const key = `history.op.${entry.code}`;
  const text = t(key);
  return text === key ? (entry.operation || entry.code) : text;
}

// One entry as a list item; `onUndo(entry)` behind its Undo button.
export function renderEntry(entry, onUndo) {
  const who = entry.user_name ? t('history.whoFrom', entry.user_name, entry.user) : entry.user;
  const what = [operationOf(entry)];
  if (entry.answer && entry.answer !== 'OK') what.push(' ', el('span', { class: 'tag refused' }, t('history.refused', entry.answer)));
  if (entry.undone_by) what.push(' ', el('span', { class: 'tag' }, t('history.undone', entry.undone_by)));
  const head = el('div', { class: 'entry-head' },
    el('time', {}, entry.time), ' ', el('span', { class: 'who' }, who), ' ',
    el('span', { class: 'code' }, `${entry.code} · #${entry.id}${entry.address ? ` · ${entry.address}` : ''}`));
  const lines = describeChanges(entry.changes);
  const more = (entry.change_count ?? 0) - (entry.changes ?? []).length;
  if (more > 0) lines.push(t('history.moreRows', more));
  const item = el('li', { class: 'entry', dataset: { entry: String(entry.id) } }, head,
    el('div', { class: 'entry-what' }, ...what),
    lines.length ? el('ul', { class: 'entry-changes' }, ...lines.map((l) => el('li', {}, l))) : null);
  if (entry.undoable && !entry.undone_by && onUndo) {
    item.append(el('button', { type: 'button', 'aria-label': t('history.undoLabel', entry.id),
      onclick: () => onUndo(entry) }, t('history.undo')));
  }
  return item;
}
