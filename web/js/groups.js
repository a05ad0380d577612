// The groups screen: the tree, the selected group's settings (105) and
// subgroups (103), add (201), change (202), delete (203), move under
// another group (212) and reorder among siblings (210), by dragging or by
// the move dialog.
import * as api from './api.js';
import { TreeModel, TreeView } from './tree.js';
import { t } from './texts.js';
import { $, el, showMessage, showError, showProblem, confirmDialog, guarded, clearError, clearFieldErrors } from './ui.js';
import { formPasses, knows } from './fieldcheck.js';
import { askMove, placeOf } from './group_move.js';
import { fillHistorySection } from './history_section.js';

// Japanese names in the order of their reading (kana of both kinds
// together), as a person expects them.
export const byReading = new Intl.Collator('ja', { sensitivity: 'base', numeric: true });

export class GroupsScreen {
  constructor({ openScreen, place }) {
    this.openScreen = openScreen;
    this.placed = place;
    this.view = new TreeView($('tree'), {
      onSelect: (i) => { this.selecting = this.selectGroup(i); },
      onDrop: (moved, target, zone) => this.dropped(moved, target, zone),
    });
    this.loaded = false;
    this.code = '';       // the selected group
    this.property = null; // its 105 values
    this.children = [];   // its 103 rows
    this.childOrder = '';
    this.token = 0;
    $('group-form').addEventListener('submit', (e) => { e.preventDefault(); this.save(); });
    $('add-form').addEventListener('submit', (e) => { e.preventDefault(); this.add(); });
    $('g-delete').addEventListener('click', () => this.remove());
    $('g-move').addEventListener('click', () => this.openMoveDialog());
    $('g-members').addEventListener('click', () => this.openScreen('members', { code: this.code, name: this.nameOf(this.code) }));
    $('children-by-seq').addEventListener('click', () => this.sortChildren(''));
    $('children-by-name').addEventListener('click', () => this.sortChildren('name'));
    $('move-form').addEventListener('submit', (e) => { e.preventDefault(); this.submitMove(); });
    $('move-cancel').addEventListener('click', () => $('move-dialog').close());
    $('move-filter').addEventListener('input', () => this.fillMoveParents());
    $('move-parent').addEventListener('change', () => this.fillMovePositions());
  }

  get model() { return this.view.model; }

  nameOf(code) {
    const i = this.model.index.get(code);
    return i === undefined ? code : this.model.name[i];
  }

  // `arg.route.g`: the group the address names.
  async open(arg) {
    const wanted = arg?.route?.g;
    if (!this.loaded) await guarded(() => this.loadTree(wanted));
    if (wanted && wanted !== this.code) {
      const i = this.model.index.get(wanted);
      if (i !== undefined) this.view.reveal(i);
    }
    // The address names the group once it is shown.
    await this.selecting;
  }

  place() { return { g: this.code }; }

  retranslate() {
    if (this.loaded) $('tree-count').textContent = t('groups.count', this.model.size.toLocaleString());
  }

  async loadTree(initial) {
    $('tree-count').textContent = t('groups.loadingTree');
    const started = performance.now();
    let model = TreeModel.fromDrawn(await api.drawnTree());
    if (!model.size) model = TreeModel.fromList(api.rows(await api.request('101'), 3));
    this.view.setModel(model);
    this.loaded = true;
    this.retranslate();
    if (this.view.selected < 0 && model.roots.length) {
      const i = initial === undefined ? undefined : model.index.get(initial);
      this.view.reveal(i ?? model.roots[0]);
    }
    document.body.dataset.treeMs = String(Math.round(performance.now() - started));
  }

  // Reloads the tree after a change and shows group `code`.
  async refresh(code) {
    await this.loadTree();
    const i = this.model.index.get(code);
    if (i !== undefined) this.view.reveal(i);
  }

  async selectGroup(i) {
    const code = this.model.code[i];
    const token = ++this.token;
    const before = this.code;
    clearError();
    // The form keeps the group it shows until the new one has come: a save
    // never mixes one group's code with another's values.
    const done = await guarded(async () => {
      const [property, children] = await Promise.all([
        api.request('105', { Group_cd: code }),
        api.request('103', { Group_cd: code, S_Col: '', S_Type: '' }),
      ]);
      if (token !== this.token) return;
      const p = property.split(',');
      this.property = {
        code: p[0], name: p[1], disp: p[2], busho: p[3], seq: p[4], list: p[5] ?? '', ymd: p[6] ?? '', hms: p[7] ?? '',
      };
      this.children = api.rows(children, 3);
      this.code = code;
      this.placed('groups', this.place());
      this.fillProperty();
      this.fillChildren();
      fillHistorySection($('group-history'), { group: code }, () => this.refresh(code));
      const [lists, bushoSet] = await Promise.all([
        api.request('107', { M_List: this.property.list }).catch(() => ''), knows('202', 'BUSHO_CD')]);
      if (token !== this.token) return 'OK';
      this.fillLists(lists ? lists.split(',') : []);
      $('g-busho').readOnly = !bushoSet;
      return 'OK';
    });
    if (done === undefined && token === this.token) {
      const b = this.model.index.get(before);
      if (b !== undefined) this.view.select(b, false);
    }
  }

  fillProperty() {
    const p = this.property;
    clearFieldErrors($('group-form'));
    $('group-none').hidden = true;
    $('group-fields').hidden = false;
    $('children-card').hidden = false;
    $('add-form').hidden = false;
    $('g-code').value = p.code;
    $('g-seq').value = p.seq;
    $('g-name').value = p.name;
    $('g-disp').value = p.disp;
    $('g-busho').value = p.busho;
    $('g-updated').value = `${api.showYmd(p.ymd)} ${p.hms.replace(/^(\d\d)(\d\d)(\d\d)$/, '$1:$2:$3')}`;
    $('add-heading').textContent = `${t('groups.addHeading')}: ${p.name}`;
  }

  fillLists(free) {
    const current = this.property.list;
    for (const id of ['g-list', 'a-list']) {
      const select = $(id);
      const keep = id === 'a-list' ? select.value : current;
      const names = new Set(free.filter(Boolean));
      if (id === 'g-list' && current) names.add(current);
      select.replaceChildren(el('option', { value: '' }, t('groups.noList')),
        ...[...names].map((n) => el('option', { value: n }, n)));
      select.value = names.has(keep) ? keep : '';
    }
  }

  fillChildren() {
    const ul = $('children');
    $('children-by-seq').setAttribute('aria-pressed', String(this.childOrder === ''));
    $('children-by-name').setAttribute('aria-pressed', String(this.childOrder === 'name'));
    if (!this.children.length) {
      ul.replaceChildren(el('li', { class: 'help' }, t('groups.noChildren')));
      return;
    }
    // The wire's name order is broken: by name means by reading, here.
    const shown = this.childOrder === 'name'
      ? [...this.children].sort((a, b) => byReading.compare(a[2], b[2]) || byReading.compare(a[0], b[0]))
      : this.children;
    ul.replaceChildren(...shown.map(([code, , name]) => el('li', {},
      el('button', { type: 'button', class: 'link', onclick: () => this.revealCode(code) }, name),
      ' ', el('span', { class: 'code' }, code))));
  }

  sortChildren(order) {
    this.childOrder = order;
    this.fillChildren();
  }

  revealCode(code) {
    const i = this.model.index.get(code);
    if (i !== undefined) {
      this.view.reveal(i);
      this.view.items.get(i)?.focus();
    }
  }

  // Sends back every field it loaded: the department code too where the
  // server stores it on request (BUSHO_Set), and the row's stamp as loaded
  // (Upd_Stamp) so that someone else's change in between is refused.
  async save() {
    if (!formPasses($('group-form'))) return;
    const name = $('g-name').value;
    if (!name.trim()) return showProblem(t('groups.nameRequired'));
    const fields = {
      Group_cd: this.code, Group_nm: name, Disp_NM: $('g-disp').value, M_LIST: $('g-list').value,
      Upd_Stamp: this.property.ymd + this.property.hms,
    };
    if (!$('g-busho').readOnly) Object.assign(fields, { BUSHO_CD: $('g-busho').value, BUSHO_Set: '1' });
    const done = await this.attemptSave(() => api.request('202', fields));
    if (done === undefined) return;
    showMessage(t('groups.renamed'));
    await guarded(() => this.refresh(this.code));
  }

  // A refused stamp offers to read the group again, keeping what was typed.
  async attemptSave(fn) {
    try {
      return await fn();
    } catch (err) {
      const stale = err.answer && err.answer.startsWith('ERROR:TIMESTAMP');
      if (stale) showError(err, [{ label: t('reloadKeep'), run: () => this.reloadKeeping() }], 'changedRow');
      else showError(err);
      return undefined;
    }
  }

  async reloadKeeping() {
    const typed = Object.fromEntries(['g-name', 'g-disp', 'g-list', 'g-busho'].map((id) => [id, $(id).value]));
    const i = this.model.index.get(this.code);
    if (i === undefined) return;
    await this.selectGroup(i);
    for (const [id, v] of Object.entries(typed)) {
      if (id === 'g-list' && ![...$(id).options].some((o) => o.value === v)) continue;
      $(id).value = v;
    }
  }


  async add() {
    if (!formPasses($('add-form'))) return;
    const name = $('a-name').value.trim();
    if (!name) return showProblem(t('groups.nameRequired'));
    const parent = this.code;
    const before = new Set(this.model.children[this.model.index.get(parent)] ?? []);
    const beforeCodes = new Set([...before].map((i) => this.model.code[i]));
    const done = await guarded(() => api.request('201', {
      Group_cd: parent, Group_nm: name, Disp_NM: $('a-disp').value.trim(), M_LIST: $('a-list').value,
      BUSHO_CD: $('a-busho').value.trim(),
    }));
    if (done === undefined) return;  // what was typed stays
    for (const id of ['a-name', 'a-disp', 'a-busho']) $(id).value = '';
    showMessage(t('groups.added', name));
    await guarded(async () => {
      await this.loadTree();
      const p = this.model.index.get(parent);
      const added = (this.model.children[p] ?? []).filter((i) => !beforeCodes.has(this.model.code[i]));
      const i = added.length ? added[added.length - 1] : p;
      this.view.reveal(i);
    });
  }

  async remove() {
    const i = this.model.index.get(this.code);
    const name = this.property?.name ?? this.code;
    // The server answers "OK" without deleting a group that has children:
    // say so here instead.
    if ((i !== undefined && this.model.children[i].length) || this.children.length) {
      return showProblem(t('groups.hasChildren', name));
    }
    if (!await confirmDialog(t('groups.confirmDelete', name))) return;
    const p = this.property;
    const done = await guarded(() => api.request('203', {
      Group_cd: this.code, Group_nm: p.name, Disp_NM: p.disp, M_LIST: p.list, BUSHO_CD: p.busho,
    }));
    if (done === undefined) return;
    showMessage(t('groups.deleted', name));
    const parent = i === undefined ? -1 : this.model.parent[i];
    await guarded(() => this.refresh(parent >= 0 ? this.model.code[parent] : ''));
  }

  // A drop from the tree: onto a group (hang it there) or before/after one
  // (the same parent as that group, at that place).
  dropped(moved, target, zone) {
    const m = this.model;
    if (zone === 'inside') return this.moveTo(moved, target, -1);
    const siblings = m.siblings(target);
    const k = siblings.indexOf(target);
    const before = zone === 'before' ? target : (k + 1 < siblings.length ? siblings[k + 1] : -1);
    return this.moveTo(moved, m.parent[target], before);
  }

  // Moves group `moved` under `parent`, before sibling `before` (-1: at
  // the end): 212 for a new parent, 210 for the place among siblings.
  // `undo`: false for the move that undoes another.
  async moveTo(moved, parent, before, undo = true) {
    const m = this.model;
    const name = m.name[moved];
    if (m.parent[moved] < 0 || parent < 0) return showProblem(t('groups.rootMove'));
    if (m.within(parent, moved)) return showProblem(t('groups.intoItself'));
    const was = placeOf(m, moved);
    if (m.parent[moved] !== parent && undo) {
      const go = await guarded(() => askMove(m, moved, parent));
      if (!go) return;
    }
    const parentCode = m.code[parent];
    const done = await guarded(async () => {
      if (m.parent[moved] === parent) {
        const siblings = m.children[parent];
        const x = siblings.indexOf(moved);
        const gap = before < 0 ? siblings.length : siblings.indexOf(before);
        if (gap === x || gap === x + 1) return 'same';
        // The server puts the moved group in the target's place: the one
        // after the gap when moving up, the one before it when moving down.
        const anchor = gap < x ? siblings[gap] : siblings[gap - 1];
        return api.request('210', { Group_cd1: m.code[moved], Group_cd2: m.code[anchor], Group_cd3: parentCode });
      }
      await api.request('212', { Group_cd1: m.code[moved], Group_cd2: parentCode });
      // Now the last under its new parent: up to the chosen place.
      if (before >= 0) await api.request('210', { Group_cd1: m.code[moved], Group_cd2: m.code[before], Group_cd3: parentCode });
      return 'OK';
    });
    const code = m.code[moved];
    if (done === 'same' || done === undefined) {
      if (done === undefined) await guarded(() => this.refresh(code));
      return;
    }
    // Said once the tree shows it.
    await guarded(() => this.refresh(code));
    showMessage(t(undo ? 'groups.moved' : 'groups.moveUndone', name),
      undo ? { label: t('groups.undo'), run: () => this.undoMove(was), ms: 30000 } : undefined);
  }

  // Back to the parent and the place a group had before a move.
  async undoMove(was) {
    const m = this.model;
    const i = m.index.get(was.code);
    const parent = m.index.get(was.parent);
    if (i === undefined || parent === undefined) return;
    const before = was.before ? m.index.get(was.before) ?? -1 : -1;
    await this.moveTo(i, parent, before, false);
  }

  openMoveDialog() {
    const i = this.model.index.get(this.code);
    if (i === undefined) return;
    if (this.model.parent[i] < 0) return showProblem(t('groups.rootMove'));
    this.moving = i;
    $('move-heading').textContent = t('groups.moveHeading', this.model.name[i]);
    $('move-filter').value = '';
    this.fillMoveParents();
    $('move-dialog').showModal();
    $('move-filter').focus();
  }

  fillMoveParents() {
    const m = this.model;
    const q = $('move-filter').value.trim().toLowerCase();
    const options = [];
    let matches = 0;
    for (let i = 0; i < m.size; i++) {
      if (m.within(i, this.moving)) continue;
      if (q && !m.name[i].toLowerCase().includes(q) && !m.code[i].toLowerCase().includes(q)) continue;
      matches++;
      if (options.length < 300) options.push(el('option', { value: String(i) }, `${m.name[i]} (${m.code[i]})`));
    }
    const select = $('move-parent');
    select.replaceChildren(...options);
    const current = String(m.parent[this.moving]);
    if (options.some((o) => o.value === current)) select.value = current;
    else if (options.length) select.selectedIndex = 0;
    $('move-shown').textContent = matches > options.length ? t('groups.moveShown', matches, options.length) : '';
    this.fillMovePositions();
  }

  fillMovePositions() {
    const m = this.model;
    const parent = Number($('move-parent').value);
    const select = $('move-position');
    const options = [el('option', { value: '-1' }, t('groups.moveLast'))];
    if (!Number.isNaN(parent) && $('move-parent').value !== '') {
      for (const c of m.children[parent].slice(0, 500)) {
        if (c !== this.moving) options.push(el('option', { value: String(c) }, t('groups.moveBefore', m.name[c])));
      }
    }
    select.replaceChildren(...options);
  }

  async submitMove() {
    if ($('move-parent').value === '') return;
    const parent = Number($('move-parent').value);
    const before = Number($('move-position').value);
    $('move-dialog').close();
    await this.moveTo(this.moving, parent, before);
  }
}
