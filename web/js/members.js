// The members of one group (104): current-only switch, sort by column,
// add (207) from the user list, change (208), remove (209), reorder by
// dragging or with Up/Down (211). Every change sends the moment the list
// was loaded; "ERROR:TIMESTAMP" offers to reload.
import * as api from './api.js';
import { t, language } from './texts.js';
import { $, el, showMessage, showError, showProblem, confirmDialog, clearError } from './ui.js';
import { UserList } from './users.js';

export class MembersScreen {
  constructor({ openScreen, place }) {
    this.openScreen = openScreen;
    this.placed = place;
    this.group = null;  // {code, name}
    this.col = '';
    this.type = '';
    this.rows = [];
    this.posts = null;
    this.loadedAt = null;
    this.dragged = -1;
    $('m-choose').addEventListener('click', () => this.openScreen('groups'));
    $('m-current').addEventListener('change', () => this.load());
    $('m-reload').addEventListener('click', () => this.load());
    $('m-seq').addEventListener('click', () => { this.col = ''; this.type = ''; this.load(); });
    $('m-add').addEventListener('click', () => this.openPicker());
    for (const th of document.querySelectorAll('#m-table th[data-col]')) {
      th.querySelector('button').addEventListener('click', () => this.sortBy(th.dataset.col));
    }
    $('member-form').addEventListener('submit', (e) => { e.preventDefault(); this.saveMembership(); });
    $('md-cancel').addEventListener('click', () => $('member-dialog').close());
    $('pick-form').addEventListener('submit', (e) => { e.preventDefault(); this.addChosen(); });
    $('pick-cancel').addEventListener('click', () => $('pick-dialog').close());
    const body = $('m-rows');
    body.addEventListener('dragstart', (e) => {
      const tr = e.target.closest('tr[data-k]');
      if (!tr) return;
      this.dragged = Number(tr.dataset.k);
      e.dataTransfer.effectAllowed = 'move';
      e.dataTransfer.setData('text/plain', this.rows[this.dragged][1]);
    });
    body.addEventListener('dragover', (e) => {
      const tr = e.target.closest('tr[data-k]');
      if (!tr || this.dragged < 0) return;
      e.preventDefault();
      for (const r of body.querySelectorAll('.drop-before, .drop-after')) r.classList.remove('drop-before', 'drop-after');
      tr.classList.add(this.lowerHalf(e, tr) ? 'drop-after' : 'drop-before');
    });
    body.addEventListener('drop', (e) => {
      const tr = e.target.closest('tr[data-k]');
      if (!tr || this.dragged < 0) return;
      e.preventDefault();
      const k = Number(tr.dataset.k);
      const moved = this.dragged;
      this.dragged = -1;
      this.reorder(moved, this.lowerHalf(e, tr) ? k + 1 : k);
    });
    body.addEventListener('dragend', () => {
      this.dragged = -1;
      for (const r of body.querySelectorAll('.drop-before, .drop-after')) r.classList.remove('drop-before', 'drop-after');
    });
  }

  lowerHalf(e, tr) {
    const r = tr.getBoundingClientRect();
    return e.clientY - r.top > r.height / 2;
  }

  // `group`: {code, name} from the groups screen, or {route: {g}} from the
  // address (the name is asked for).
  async open(group, isCurrent = () => true) {
    if (group?.route?.g && group.route.g !== this.group?.code) {
      const code = group.route.g;
      const property = await this.attempt(() => api.request('105', { Group_cd: code }));
      if (property === undefined || !isCurrent()) return;
      group = { code, name: property.split(',')[1] || code };
    }
    if (group && group.code) this.group = group;
    $('members-none').hidden = !!this.group;
    for (const id of ['m-table', 'm-add', 'm-reload']) $(id).hidden = !this.group;
    $('members-heading').textContent = this.group ? t('members.of', this.group.name) : t('members.heading');
    if (this.group) await this.load();
  }

  place() { return { g: this.group?.code }; }

  retranslate() {
    $('members-heading').textContent = this.group ? t('members.of', this.group.name) : t('members.heading');
    if (this.group) this.render();
    if (this.picker) {
      $('pick-heading').textContent = t('members.addHeading', this.group.name);
      $('pick-progress').textContent = '';
      this.picker.retranslate();
    }
  }

  get reorderable() { return this.col === ''; }

  // Fails are shown; a time-stamp refusal offers to reload.
  async attempt(fn) {
    try {
      return await fn();
    } catch (err) {
      const stale = err.answer && err.answer.startsWith('ERROR:TIMESTAMP');
      showError(err, stale ? [{ label: t('reload'), run: () => this.load() }] : []);
      return undefined;
    }
  }

  async load() {
    if (!this.group) return;
    const token = this.loading = (this.loading ?? 0) + 1;
    await this.attempt(async () => {
      if (!this.posts) this.posts = new Map(api.rows(await api.request('109'), 2));
      // Taken before asking: any change after it is someone else's.
      const at = api.moment();
      const answer = await api.request('104', {
        Group_cd: this.group.code, S_Col: this.col, S_Type: this.type, S_OPT: $('m-current').checked ? '1' : '',
      });
      if (token !== this.loading) return;  // a newer list was asked for: it is shown
      this.loadedAt = at;
      this.rows = api.rows(answer, 7);
      this.render();
    });
  }

  // After a change of our own: the list as it now stands.
  async reloadAfterChange() {
    await this.load();
  }

  stamp() { return { Upd_Ymd: this.loadedAt?.ymd ?? '', Upd_Hms: this.loadedAt?.hms ?? '' }; }

  render() {
    for (const th of document.querySelectorAll('#m-table th[data-col]')) {
      const on = th.dataset.col === this.col;
      th.setAttribute('aria-sort', on ? (this.type === '1' ? 'descending' : 'ascending') : 'none');
      const b = th.querySelector('button');
      b.textContent = t(b.dataset.t) + (on ? (this.type === '1' ? ' ▼' : ' ▲') : '');
    }
    $('m-seq').hidden = this.reorderable;
    $('m-hint').textContent = this.reorderable ? t('members.reorderHelp') : t('members.sortedHint');
    const body = $('m-rows');
    if (!this.rows.length) {
      body.replaceChildren(el('tr', {}, el('td', { colspan: '8' }, t('members.empty'))));
      return;
    }
    body.replaceChildren(...this.rows.map((r, k) => {
      const [name, id, kbn, post, mail, st, ed] = r;
      const who = name || id;
      const actions = el('td', { class: 'row-actions' });
      if (this.reorderable) {
        actions.append(
          el('button', { type: 'button', 'aria-label': t('members.upLabel', who), disabled: k === 0, onclick: () => this.reorder(k, k - 1) }, '↑'),
          el('button', { type: 'button', 'aria-label': t('members.downLabel', who), disabled: k === this.rows.length - 1, onclick: () => this.reorder(k, k + 2) }, '↓'));
      }
      actions.append(
        el('button', { type: 'button', 'aria-label': t('members.editLabel', who), onclick: () => this.openMembership(k) }, t('members.edit')),
        el('button', { type: 'button', class: 'danger', 'aria-label': t('members.removeLabel', who), onclick: () => this.remove(k) }, t('members.remove')));
      return el('tr', { dataset: { k: String(k), id }, draggable: this.reorderable ? 'true' : false },
        el('td', {}, name), el('td', {}, id),
        el('td', {}, kbn === '1' ? el('span', { class: 'tag primary' }, t('members.primary')) : ''),
        el('td', {}, this.posts?.get(post) ?? post), el('td', {}, mail),
        el('td', {}, api.showYmd(st)), el('td', {}, api.showYmd(ed)), actions);
    }));
  }

  sortBy(col) {
    this.type = this.col === col && this.type !== '1' ? '1' : '';
    this.col = col;
    this.load();
  }

  // Moves member `k` into the gap before row `gap` (0..n): the server puts
  // a member right before another; the end takes two steps.
  async reorder(k, gap) {
    const n = this.rows.length;
    if (!this.reorderable || gap === k || gap === k + 1 || gap < 0 || gap > n) return;
    const id = (i) => this.rows[i][1];
    const code = this.group.code;
    const done = await this.attempt(async () => {
      if (gap < n) {
        await api.request('211', { Group_cd: code, User_cd: id(gap), User_cd2: id(k) });
      } else {
        await api.request('211', { Group_cd: code, User_cd: id(n - 1), User_cd2: id(k) });
        await api.request('211', { Group_cd: code, User_cd: id(k), User_cd2: id(n - 1) });
      }
      return 'OK';
    });
    await this.reloadAfterChange();
    if (done) {
      showMessage(t('done'));
      $('m-rows').querySelector(`tr[data-id="${CSS.escape(id(k))}"] button`)?.focus();
    }
  }

  openMembership(k) {
    const [name, id, kbn, post, , st, ed] = this.rows[k];
    this.editing = id;
    $('member-dialog-heading').textContent = t('members.editHeading', name || id);
    $('md-primary').checked = kbn === '1';
    const select = $('md-post');
    select.replaceChildren(el('option', { value: '' }, t('members.noPost')),
      ...[...(this.posts ?? new Map())].map(([c, n]) => el('option', { value: c }, n)));
    select.value = post;
    $('md-start').value = api.ymdToInput(st);
    $('md-end').value = api.ymdToInput(ed);
    clearError();
    $('member-dialog').showModal();
  }

  async saveMembership() {
    const st = api.inputToYmd($('md-start').value);
    const ed = api.inputToYmd($('md-end').value);
    if (!/^\d{8}$/.test(st) || (ed && !/^\d{8}$/.test(ed))) return showProblem(t('members.badDate'));
    const done = await this.attempt(() => api.request('208', {
      Group_cd: this.group.code, User_cd: this.editing, Primary: $('md-primary').checked ? '1' : '0',
      Post_cd: $('md-post').value, ST_Ymd: st, ED_Ymd: ed, ...this.stamp(),
    }));
    if (done === undefined) return;  // the dialog stays open with what was typed
    $('member-dialog').close();
    showMessage(t('saved'));
    await this.reloadAfterChange();
  }

  async remove(k) {
    const [name, id] = this.rows[k];
    if (!await confirmDialog(t('members.confirmRemove', name || id, this.group.name))) return;
    const done = await this.attempt(() => api.request('209', { Group_cd: this.group.code, User_cd: id, ...this.stamp() }));
    if (done === undefined) return;
    showMessage(t('done'));
    await this.reloadAfterChange();
  }

  // The picker marks who already belongs (over any period) and how.
  async openPicker() {
    const all = await this.attempt(() => api.request('104', { Group_cd: this.group.code, S_Col: '', S_Type: '', S_OPT: '' }));
    if (all === undefined) return;
    this.marks = new Map(api.rows(all, 7).map((r) => [r[1], r[2] === '1' ? '1' : '0']));
    this.names = new Map(api.rows(all, 7).map((r) => [r[1], r[0] || r[1]]));
    $('pick-heading').textContent = t('members.addHeading', this.group.name);
    $('pick-progress').textContent = '';
    this.picker = new UserList($('pick-list'), { picker: true, marks: this.marks });
    clearError();
    $('pick-dialog').showModal();
    this.picker.open();
  }

  async addChosen() {
    const ids = [...this.picker.chosen];
    // Adding a member again replaces the membership with a concurrent one
    // from today: say so and ask first.
    const again = ids.filter((id) => this.marks.has(id));
    if (again.length) {
      const who = again.map((id) => `${this.names.get(id)} (${t(this.marks.get(id) === '1' ? 'members.markPrimary' : 'members.markConcurrent')})`);
      const primary = again.some((id) => this.marks.get(id) === '1') ? t('members.againPrimary') : '';
      if (!await confirmDialog(t('members.confirmAgain', who.join(language() === 'en' ? ', ' : '、'), primary))) return;
    }
    let added = 0;
    for (const id of ids) {
      $('pick-progress').textContent = t('members.adding', added + 1, ids.length);
      const done = await this.attempt(() => api.request('207', { Group_cd: this.group.code, User_cd: id, ...this.stamp() }));
      if (done === undefined) break;
      added++;
      this.picker.chosen.delete(id);
      // Our own change is not someone else's.
      this.loadedAt = api.moment();
    }
    $('pick-progress').textContent = t('members.added', added);
    if (added === ids.length) $('pick-dialog').close();
    if (added) showMessage(t('members.added', added));
    await this.reloadAfterChange();
  }
}
