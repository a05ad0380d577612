// The users screen: counts per kana row (002) as tabs, a paged, sortable
// list of 50 (102) and the user form (106, 108; 204 create, 205 change,
// 206 delete). The list is also the member picker of the members screen.
import * as api from './api.js';
import { t } from './texts.js';
import { $, el, showMessage, showError, showProblem, confirmDialog, guarded, clearError, clearFieldErrors } from './ui.js';
import { formPasses } from './fieldcheck.js';
import { fillHistorySection } from './history_section.js';

const PAGE = 50;
const LAST_POSITION = 32767;  // the list's start position is a 16-bit number
const KANA = ['ア', 'カ', 'サ', 'タ', 'ナ', 'ハ', 'マ', 'ヤ', 'ラ', 'ワ'];
// Columns of 102: the sort key the server knows each by.
const COLUMNS = [
  { key: 'name', label: 'users.name', field: 0 },
  { key: 'id', label: 'users.id', field: 1 },
  { key: 'post', label: 'users.post', field: 2 },
  { key: 'mail', label: 'users.dispName', field: 3 },
  { key: 'term', label: 'users.mail', field: 4 },
];

let listCount = 0;

export class UserList {
  // `picker`: rows get a checkbox; otherwise `onOpen(id)` on a row.
  // `onMove()` after the row or page changed.
  // `marks`: user id -> '1' (primary) or '0' (concurrent) for those who
  // already belong to the group the picker adds to.
  constructor(container, { picker = false, onOpen = () => {}, onMove = () => {}, marks = new Map() } = {}) {
    this.picker = picker;
    this.marks = marks;
    this.onOpen = onOpen;
    this.onMove = onMove;
    this.row = '';
    this.col = 'name';
    this.type = '';
    this.page = 1;
    this.counts = new Map();
    this.chosen = new Set();
    this.rows = [];
    const id = `ul${++listCount}`;
    this.tabs = el('div', { role: 'tablist', class: 'tabs', 'aria-label': t('users.rows') });
    this.head = el('tr');
    this.body = el('tbody');
    this.table = el('table', { class: 'list', id: `${id}-table` }, el('thead', {}, this.head), this.body);
    this.range = el('span', { class: 'help', 'aria-live': 'polite' });
    this.pageInput = el('input', { type: 'number', min: '1', value: '1', class: 'page', 'aria-label': t('users.page') });
    this.prevButton = el('button', { type: 'button', onclick: () => this.go(this.page - 1) }, t('users.prev'));
    this.nextButton = el('button', { type: 'button', onclick: () => this.go(this.page + 1) }, t('users.next'));
    this.pageInput.addEventListener('change', () => this.go(Number(this.pageInput.value) || 1));
    this.limit = el('p', { class: 'help', hidden: true }, t('users.limit'));
    container.replaceChildren(this.tabs, this.table,
      el('div', { class: 'pager' }, this.prevButton, this.pageInput, this.nextButton, this.range), this.limit);
    this.renderTabs();
    this.renderHead();
  }

  renderTabs() {
    const tab = (row, label) => {
      const n = this.counts.get(row);
      return el('button', {
        type: 'button', role: 'tab', 'aria-selected': String(this.row === row), tabindex: this.row === row ? '0' : '-1',
        dataset: { row }, onclick: () => this.chooseRow(row), onkeydown: (e) => this.tabKey(e),
      }, label, n === undefined ? '' : el('span', { class: 'count' }, ` ${n.toLocaleString()}`));
    };
    this.tabs.setAttribute('aria-label', t('users.rows'));
    this.tabs.replaceChildren(tab('', t('users.all')), ...KANA.map((k, i) => tab(String(i), k)));
  }

  tabKey(e) {
    const tabs = [...this.tabs.children];
    const k = tabs.indexOf(e.currentTarget);
    let n = -1;
    if (e.key === 'ArrowRight') n = (k + 1) % tabs.length;
    if (e.key === 'ArrowLeft') n = (k - 1 + tabs.length) % tabs.length;
    if (n < 0) return;
    e.preventDefault();
    this.chooseRow(tabs[n].dataset.row).then(() => this.tabs.children[n].focus());
  }

  renderHead() {
    const cells = COLUMNS.map((c) => {
      const sorted = this.col === c.key;
      return el('th', { scope: 'col', 'aria-sort': sorted ? (this.type === '1' ? 'descending' : 'ascending') : 'none' },
        el('button', { type: 'button', onclick: () => this.sortBy(c.key) }, t(c.label), sorted ? (this.type === '1' ? ' ▼' : ' ▲') : ''));
    });
    if (this.picker) cells.unshift(el('th', { scope: 'col' }, t('users.select')));
    this.head.replaceChildren(...cells);
  }

  async loadCounts() {
    const rows = ['', ...KANA.map((_, i) => String(i))];
    const answers = await Promise.all(rows.map((r) => api.request('002', { S_Kbn: 'U', S_OPT: r })));
    rows.forEach((r, k) => this.counts.set(r, Number(answers[k]) || 0));
    this.renderTabs();
  }

  get total() { return this.counts.get(this.row) ?? 0; }

  async load() {
    const start = (this.page - 1) * PAGE + 1;
    const answer = this.total === 0 ? '' : await api.request('102', {
      S_Col: this.col, S_Type: this.type, S_OPT: this.row, S_pos: String(start), B_pos: String(PAGE),
    });
    this.rows = api.rows(answer, 6).slice(0, PAGE);
    this.renderRows(start);
  }

  renderRows(start) {
    if (!this.rows.length) {
      this.body.replaceChildren(el('tr', {}, el('td', { colspan: String(COLUMNS.length + 1) }, t('users.empty'))));
    } else {
      this.body.replaceChildren(...this.rows.map((r) => this.renderRow(r)));
    }
    const last = Math.min(this.total, LAST_POSITION + PAGE - 1);
    const pages = Math.max(1, Math.ceil(last / PAGE));
    this.pageInput.max = String(pages);
    this.pageInput.value = String(this.page);
    this.prevButton.disabled = this.page <= 1;
    this.nextButton.disabled = this.page >= pages;
    this.limit.hidden = this.total <= last;
    this.range.textContent = this.rows.length
      ? t('users.range', start.toLocaleString(), (start + this.rows.length - 1).toLocaleString(), this.total.toLocaleString())
      : '';
  }

  renderRow(r) {
    const [name, id, , , , kbn] = r;
    const cells = COLUMNS.map((c) => el('td', {}, r[c.field]));
    cells[0].replaceChildren(this.picker ? name
      : el('button', { type: 'button', class: 'link', onclick: () => this.onOpen(id) }, name || id));
    if (kbn === '1') cells[0].append(' ', el('span', { class: 'tag' }, t('users.deleted')));
    const mark = this.marks.get(id);
    if (mark !== undefined) {
      cells[0].append(' ', el('span', { class: `tag member ${mark === '1' ? 'primary' : ''}` },
        t(mark === '1' ? 'members.markPrimary' : 'members.markConcurrent')));
    }
    if (this.picker) {
      const box = el('input', { type: 'checkbox', 'aria-label': t('users.selectLabel', name || id), value: id });
      box.checked = this.chosen.has(id);
      box.addEventListener('change', () => { if (box.checked) this.chosen.add(id); else this.chosen.delete(id); });
      cells.unshift(el('td', {}, box));
    }
    return el('tr', { class: kbn === '1' ? 'deleted' : '', dataset: { id } }, ...cells);
  }

  async open() {
    await guarded(async () => {
      await this.loadCounts();
      const last = Math.max(1, Math.ceil(Math.min(this.total, LAST_POSITION + PAGE - 1) / PAGE));
      this.page = Math.min(Math.max(1, this.page), last);
      await this.load();
    });
  }

  // A row and page from the address.
  setPlace(row, page) {
    this.row = KANA[Number(row)] !== undefined ? String(Number(row)) : '';
    this.page = Math.max(1, Number(page) || 1);
    this.renderTabs();
  }

  async reload() {
    await guarded(async () => {
      await this.loadCounts();
      const pages = Math.max(1, Math.ceil(Math.min(this.total, LAST_POSITION + PAGE - 1) / PAGE));
      this.page = Math.min(this.page, pages);
      await this.load();
    });
  }

  async chooseRow(row) {
    this.row = row;
    this.page = 1;
    this.renderTabs();
    this.onMove();
    await guarded(() => this.load());
  }

  async sortBy(key) {
    this.type = this.col === key && this.type !== '1' ? '1' : '';
    this.col = key;
    this.page = 1;
    this.renderHead();
    await guarded(() => this.load());
  }

  async go(page) {
    const last = Math.max(1, Math.ceil(Math.min(this.total, LAST_POSITION + PAGE - 1) / PAGE));
    this.page = Math.min(Math.max(1, page), last);
    this.onMove();
    await guarded(() => this.load());
  }

  retranslate() {
    this.renderTabs();
    this.renderHead();
    this.prevButton.textContent = t('users.prev');
    this.nextButton.textContent = t('users.next');
    this.pageInput.setAttribute('aria-label', t('users.page'));
    this.limit.textContent = t('users.limit');
    this.renderRows((this.page - 1) * PAGE + 1);
  }
}

// 106's twelve values.
const FIELDS = ['id', 'name', 'kana', 'password', 'mail', 'alias', 'tel', 'post', 'disp', 'mailuse', 'kbn', 'mailname'];

export class UsersScreen {
  constructor({ openScreen, place }) {
    this.openScreen = openScreen;
    this.placed = place;
    this.list = new UserList($('u-list'), {
      onOpen: (id) => this.edit(id), onMove: () => this.placed('users', this.place()),
    });
    this.user = null;  // the stored values of the user in the form
    this.opened = false;
    $('user-form').addEventListener('submit', (e) => { e.preventDefault(); this.save(); });
    $('f-new').addEventListener('click', () => { clearError(); this.blank(); });
    $('f-delete').addEventListener('click', () => this.remove());
    $('f-menus').addEventListener('click', () => this.openScreen('menus', { user: this.user.id }));
  }

  // `arg.route`: {row, page, u} from the address. `isCurrent()` turns
  // false once another screen or user was asked for.
  async open(arg, isCurrent = () => true) {
    const r = arg?.route;
    if (!this.opened) {
      this.opened = true;
      this.blank(false);
    }
    if (r) this.list.setPlace(r.row, r.page);
    await this.list.open();
    if (!isCurrent()) return;
    if (r && r.u && r.u !== this.user?.id) await this.edit(r.u);
    else if (r && !r.u && this.user) this.blank(false);
  }

  place() {
    return { row: this.list.row, page: this.list.page > 1 ? this.list.page : '', u: this.user?.id };
  }

  retranslate() {
    this.list.retranslate();
    this.heading();
    if ($('f-password').placeholder) $('f-password').placeholder = t('users.passwordKept');
  }

  heading() {
    $('user-form-heading').textContent = this.user ? t('users.formEdit', this.user.name || this.user.id) : t('users.formNew');
    $('f-save').textContent = this.user ? t('users.save') : t('users.create');
  }

  // `report`: false while the address itself is being followed.
  blank(report = true) {
    this.editing = (this.editing ?? 0) + 1;  // a user still being read is not shown over it
    this.user = null;
    if (report) this.placed('users', this.place());
    this.setRequest('204');
    for (const id of ['f-id', 'f-password', 'f-name', 'f-kana', 'f-mail', 'f-mailname', 'f-tel', 'f-post', 'f-disp']) $(id).value = '';
    $('f-password').placeholder = '';
    $('f-alias').checked = false;
    $('f-mailuse').checked = false;
    $('f-id').readOnly = false;
    $('f-delete').hidden = true;
    $('f-menus').hidden = true;
    $('f-sections').replaceChildren();
    $('user-history').hidden = true;
    this.heading();
  }

  async edit(id) {
    clearError();
    const token = this.editing = (this.editing ?? 0) + 1;
    await guarded(async () => {
      const [property, groups, stamp] = await Promise.all([
        api.request('106', { User_cd: id }), api.request('108', { User_cd: id }), api.stamp({ user: id }),
      ]);
      // Another user (or a blank form) was asked for meanwhile: that one wins.
      if (token !== this.editing) return;
      const v = property.split(',');
      const u = Object.fromEntries(FIELDS.map((f, k) => [f, v[k] ?? '']));
      u.stamp = stamp;
      this.user = u;
      this.placed('users', this.place());
      this.setRequest('205');
      $('f-id').value = u.id;
      $('f-id').readOnly = true;
      // Hashed passwords are never sent back: an empty field then means
      // "unchanged", and 205 keeps the stored one.
      $('f-password').value = u.password;
      $('f-password').placeholder = u.password === '' ? t('users.passwordKept') : '';
      $('f-name').value = u.name;
      $('f-kana').value = u.kana;
      $('f-mail').value = u.mail;
      $('f-alias').checked = u.alias === '1';
      $('f-mailuse').checked = u.mailuse === '1';
      $('f-mailname').value = u.mailname;
      $('f-tel').value = u.tel;
      $('f-post').value = u.post;
      $('f-disp').value = u.disp;
      $('f-delete').hidden = false;
      $('f-menus').hidden = false;
      this.heading();
      fillHistorySection($('user-history'), { about: u.id }, () => this.edit(u.id));
      const rows = api.rows(groups, 8);
      $('f-sections').replaceChildren(...(rows.length ? rows.map((r) => el('li', {},
        `${r[5]} (${r[4]})`, r[1] === '1' ? el('span', { class: 'tag' }, t('members.primary')) : '',
        ` ${api.showYmd(r[6])} – ${api.showYmd(r[7])}`)) : [el('li', { class: 'help' }, t('users.noSections'))]));
    });
  }

  fields() {
    return {
      User_cd: $('f-id').value.trim(), User_KJ: $('f-name').value, User_KN: $('f-kana').value,
      User_PS: $('f-password').value, Mail_AD: $('f-mail').value.trim(), Mail_FL: $('f-alias').checked ? '1' : '0',
      Ext_TEL: $('f-tel').value, Post_NM: $('f-post').value, Disp_NM: $('f-disp').value,
      Mail_UFL: $('f-mailuse').checked ? '1' : '0', Mail_NM: $('f-mailname').value,
    };
  }

  // The form's fields are checked by the rules of the request it sends.
  setRequest(code) {
    for (const input of $('user-form').querySelectorAll('[data-req]')) input.dataset.req = code;
    clearFieldErrors($('user-form'));
  }

  async save() {
    if (!formPasses($('user-form'))) return;
    const f = this.fields();
    if (!f.User_cd) return showProblem(t('users.idRequired'));
    const creating = !this.user;
    // What the mail server knew before: no alias for a new user. Its old
    // mail-use flag repeats the new one: the account mode table answers
    // "old equals new" with the update flag itself (create), while old "0"
    // with new "1" would send a delete.
    const old = creating
      ? { OldMail_UFL: f.Mail_UFL, OldAlias: '', OldAlias_FL: '0' }
      : { OldMail_UFL: this.user.mailuse, OldAlias: this.user.mail, OldAlias_FL: this.user.alias };
    // The row's stamp as loaded, where the server tells it: someone else's
    // change in between is refused instead of overwritten.
    const stamp = !creating && this.user.stamp ? { Upd_Stamp: this.user.stamp } : {};
    let done;
    try {
      done = await api.request(creating ? '204' : '205', { ...f, ...old, ...stamp });
    } catch (err) {
      if (err.answer?.startsWith('ERROR:TIMESTAMP')) {
        showError(err, [{ label: t('reloadKeep'), run: () => this.reloadKeeping() }], 'changedRow');
      } else {
        showError(err);
      }
    }
    if (done === undefined) return;  // the form keeps what was typed
    showMessage(t(creating ? 'users.created' : 'users.saved', f.User_cd));
    await this.list.reload();
    await this.edit(f.User_cd);
  }

  async reloadKeeping() {
    const ids = ['f-password', 'f-name', 'f-kana', 'f-mail', 'f-mailname', 'f-tel', 'f-post', 'f-disp'];
    const typed = Object.fromEntries(ids.map((id) => [id, $(id).value]));
    const boxes = { 'f-alias': $('f-alias').checked, 'f-mailuse': $('f-mailuse').checked };
    await this.edit(this.user.id);
    for (const [id, v] of Object.entries(typed)) $(id).value = v;
    for (const [id, v] of Object.entries(boxes)) $(id).checked = v;
  }

  async remove() {
    const u = this.user;
    if (!u || !await confirmDialog(t('users.confirmDelete', u.name || u.id))) return;
    const f = this.fields();
    delete f.Mail_NM;
    const done = await guarded(() => api.request('206', f));
    if (done === undefined) return;
    showMessage(t('users.removed', u.id));
    this.blank();
    await this.list.reload();
  }
}
