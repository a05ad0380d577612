// The history screen: the change history filtered by user, group, request
// code and dates, newest first and paged on; the deleted users and groups
// with a Restore button (POST /api/history/restore); Undo on an entry that
// can still be undone (POST /api/history/undo). Its address carries the
// filters: #/history?user=ID&about=ID&group=CODE&code=NNN&since=DATE&until=DATE
// (user: who made the change; about: whose rows it touched).
import * as api from './api.js';
import { t } from './texts.js';
import { $, el, showMessage, showProblem, confirmDialog, guarded, clearError } from './ui.js';
import { fetchEntries, operationOf, renderEntry } from './history_list.js';

const PAGE = 50;
const FILTERS = ['user', 'about', 'group', 'code', 'since', 'until'];

// A restore or an undo: {ok, entry}, or a refusal that names what blocks.
async function act(path, fields) {
  const answer = await guarded(() => api.json(path, fields).catch((err) => {
    if (err.body?.ok === false) return err.body;  // refused with a sentence, whatever the status
    throw err;
  }));
  if (answer === undefined) return undefined;
  if (!answer.ok) {
    showProblem(`${answer.message ?? ''} (${(answer.error ?? '').replace(/^ERROR:/, '')})`);
    return undefined;
  }
  return answer;
}

export async function undoEntry(entry) {
  if (!await confirmDialog(t('history.undoConfirm', operationOf(entry)))) return false;
  clearError();
  const done = await act('/api/history/undo', { entry: String(entry.id) });
  if (done === undefined) return false;
  showMessage(t('history.undoneMessage', done.entry));
  return true;
}

export class HistoryScreen {
  constructor({ place }) {
    this.placed = place;
    this.filters = {};
    this.next = null;
    this.loading = 0;
    $('history-form').addEventListener('submit', (e) => {
      e.preventDefault();
      this.filters = this.readForm();
      this.placed('history', this.place());
      this.load();
    });
    $('h-clear').addEventListener('click', () => {
      this.filters = {};
      this.fillForm();
      this.placed('history', this.place());
      this.load();
    });
    $('h-more').addEventListener('click', () => this.load(this.next));
  }

  // `arg.route`: the filters from the address; `arg.filters` from another
  // screen.
  async open(arg) {
    const given = arg?.route ?? arg?.filters;
    if (given) this.filters = Object.fromEntries(FILTERS.filter((k) => given[k]).map((k) => [k, given[k]]));
    this.fillForm();
    await Promise.all([this.load(), this.loadDeleted()]);
  }

  place() { return { ...this.filters }; }

  retranslate() {
    this.renderEntries();
    this.renderDeleted();
  }

  readForm() {
    const f = {
      user: $('h-user').value.trim(), about: $('h-about').value.trim(), group: $('h-group').value.trim(), code: $('h-code').value.trim(),
      since: $('h-since').value, until: $('h-until').value,
    };
    return Object.fromEntries(Object.entries(f).filter(([, v]) => v));
  }

  fillForm() {
    $('h-user').value = this.filters.user ?? '';
    $('h-about').value = this.filters.about ?? '';
    $('h-group').value = this.filters.group ?? '';
    $('h-code').value = this.filters.code ?? '';
    $('h-since').value = this.filters.since ?? '';
    $('h-until').value = this.filters.until ?? '';
  }

  // The first page, or the page older than entry `before`.
  async load(before = null) {
    const token = ++this.loading;
    const page = await guarded(() => fetchEntries(this.filters, before, PAGE));
    if (page === undefined || token !== this.loading) return;
    this.entries = before ? [...(this.entries ?? []), ...page.entries] : page.entries;
    this.next = page.next ?? null;
    this.renderEntries();
  }

  renderEntries() {
    const list = $('h-entries');
    const entries = this.entries ?? [];
    list.replaceChildren(...(entries.length ? entries.map((e) => renderEntry(e, (x) => this.undo(x)))
      : [el('li', { class: 'help' }, t('history.none'))]));
    $('h-more').hidden = !this.next;
  }

  async undo(entry) {
    if (await undoEntry(entry)) await Promise.all([this.load(), this.loadDeleted()]);
  }

  async loadDeleted() {
    const [users, groups] = await Promise.all(['user', 'group'].map((kind) =>
      api.json(`/api/history/deleted?kind=${kind}`).then((a) => a.deleted ?? [], () => [])));
    this.deleted = { user: users, group: groups };
    this.renderDeleted();
  }

  renderDeleted() {
    for (const kind of ['user', 'group']) {
      const rows = this.deleted?.[kind] ?? [];
      const body = $(kind === 'user' ? 'h-deleted-users' : 'h-deleted-groups');
      body.replaceChildren(...(rows.length ? rows.map((d) => {
        const name = d.name ? `${d.name} (${d.key})` : d.key;
        const cell = d.restorable
          ? el('button', { type: 'button', 'aria-label': t('history.restoreLabel', name), onclick: () => this.restore({ ...d, kind }, name) },
            t('history.restore'))
          : el('span', { class: 'help' }, t('history.notRestorable'));
        return el('tr', { dataset: { key: d.key } }, el('td', { class: 'name' }, name), el('td', {}, d.time ?? ''), el('td', {}, cell));
      }) : [el('tr', {}, el('td', { colspan: '3', class: 'help' }, t('history.deletedNone')))]));
    }
  }

  async restore(d, name) {
    if (!await confirmDialog(t('history.restoreConfirm', name))) return;
    clearError();
    const done = await act('/api/history/restore', { kind: d.kind, key: d.key });
    if (done === undefined) return;
    showMessage(t('history.restored', name, done.entry));
    await Promise.all([this.load(), this.loadDeleted()]);
  }
}
