// The group tree: a model built once from the drawn tree (or from request
// 101) and a view that puts only the children of expanded groups into the
// page, a few hundred at a time, so that a tree of tens of thousands of
// groups opens at once. Keyboard: arrows, Home, End, Enter; drag and drop
// onto a group (hang it there) or between two groups (reorder).
import { el } from './ui.js';
import { t } from './texts.js';

const CHUNK = 200;

export class TreeModel {
  constructor() {
    this.code = [];
    this.name = [];
    this.parent = [];   // index of the parent, -1 for a top group
    this.children = []; // indexes, in the order of the siblings
    this.roots = [];
    this.index = new Map();
  }

  add(code, name, parentCode) {
    const i = this.code.length;
    this.code.push(code);
    this.name.push(name);
    this.parent.push(parentCode);
    this.children.push([]);
    this.index.set(code, i);
  }

  link() {
    for (let i = 0; i < this.code.length; i++) {
      const p = this.index.get(this.parent[i]);
      this.parent[i] = p === undefined || p === i ? -1 : p;
      if (this.parent[i] < 0) this.roots.push(i);
      else this.children[this.parent[i]].push(i);
    }
    return this;
  }

  // The drawn tree: rows in tree order (siblings by their order), columns
  // code, name, display name, parent, ...
  static fromDrawn(text) {
    const m = new TreeModel();
    for (const line of text.split('\r\n')) {
      if (!line) continue;
      const c = line.split('\t');
      if (!c[0]) continue;  // a section without a drawn parent: left empty
      m.add(c[0], c[1] ?? '', c[3] ?? '');
    }
    return m.link();
  }

  // Request 101: code, parent, name triples, parents before children.
  static fromList(rows) {
    const m = new TreeModel();
    for (const [code, parent, name] of rows) if (code) m.add(code, name, parent);
    return m.link();
  }

  get size() { return this.code.length; }

  // Whether `i` is `ancestor` or lies below it.
  within(i, ancestor) {
    for (let n = i; n >= 0; n = this.parent[n]) if (n === ancestor) return true;
    return false;
  }

  depth(i) {
    let d = 1;
    for (let n = this.parent[i]; n >= 0; n = this.parent[n]) d++;
    return d;
  }

  siblings(i) { return this.parent[i] < 0 ? this.roots : this.children[this.parent[i]]; }
}

export class TreeView {
  constructor(ul, handlers) {
    this.ul = ul;
    this.h = handlers;  // onSelect(i), onDrop(moved, target, zone)
    this.model = new TreeModel();
    this.items = new Map();  // index -> li, for the groups in the page
    this.expanded = new Set();
    this.selected = -1;
    this.dragged = -1;
    ul.addEventListener('click', (e) => this.onClick(e));
    ul.addEventListener('keydown', (e) => this.onKey(e));
    ul.addEventListener('dragstart', (e) => this.onDragStart(e));
    ul.addEventListener('dragover', (e) => this.onDragOver(e));
    ul.addEventListener('dragleave', (e) => this.clearDrop(e.target.closest?.('.row')));
    ul.addEventListener('drop', (e) => this.onDrop(e));
    ul.addEventListener('dragend', () => { this.dragged = -1; this.clearDrop(); });
  }

  // A new model; the expanded groups stay expanded and the selection stays
  // where their codes still exist.
  setModel(model) {
    const old = this.model;
    const expandedCodes = [...this.expanded].map((i) => old.code[i]);
    const selectedCode = this.selected >= 0 ? old.code[this.selected] : null;
    this.model = model;
    this.items.clear();
    this.expanded.clear();
    this.selected = -1;
    for (const c of expandedCodes) {
      const i = model.index.get(c);
      if (i !== undefined) this.expanded.add(i);
    }
    if (!old.size) for (const r of model.roots) this.expanded.add(r);
    this.ul.replaceChildren();
    this.renderChildren(-1, this.ul, 0);
    const s = selectedCode === null ? undefined : model.index.get(selectedCode);
    if (s !== undefined) this.reveal(s, false);
    else if (model.roots.length) this.setFocusable(this.items.get(model.roots[0]));
  }

  renderItem(i, pos, setsize) {
    const m = this.model;
    const kids = m.children[i].length;
    const li = el('li', {
      role: 'treeitem', tabindex: '-1', 'aria-level': String(m.depth(i)),
      'aria-posinset': String(pos + 1), 'aria-setsize': String(setsize), 'aria-selected': 'false',
      dataset: { i: String(i) },
    }, el('div', { class: 'row', draggable: 'true' },
      el('span', { class: 'twisty', 'aria-hidden': 'true' }),
      el('span', { class: 'name' }, m.name[i]),
      el('span', { class: 'code' }, m.code[i])));
    if (kids) li.setAttribute('aria-expanded', 'false');
    if (i === this.selected) li.setAttribute('aria-selected', 'true');
    this.items.set(i, li);
    if (kids && this.expanded.has(i)) this.open(i, li);
    return li;
  }

  // Puts children `from`.. of `parent` (-1: the top) into `ul`, CHUNK at a
  // time, with a "more" item behind them when some are left.
  renderChildren(parent, ul, from) {
    const list = parent < 0 ? this.model.roots : this.model.children[parent];
    const end = Math.min(list.length, from + CHUNK);
    const frag = document.createDocumentFragment();
    for (let k = from; k < end; k++) frag.append(this.renderItem(list[k], k, list.length));
    if (end < list.length) {
      frag.append(el('li', { role: 'treeitem', tabindex: '-1', class: 'more', dataset: { parent: String(parent), from: String(end) } },
        t('groups.more', list.length - end)));
    }
    ul.append(frag);
  }

  open(i, li) {
    li.setAttribute('aria-expanded', 'true');
    const group = el('ul', { role: 'group' });
    li.append(group);
    this.renderChildren(i, group, 0);
  }

  expand(i) {
    const li = this.items.get(i);
    if (!li || !this.model.children[i].length || this.expanded.has(i)) return;
    this.expanded.add(i);
    this.open(i, li);
  }

  collapse(i) {
    const li = this.items.get(i);
    if (!li || !this.expanded.has(i)) return;
    this.expanded.delete(i);
    li.setAttribute('aria-expanded', 'false');
    const group = li.querySelector(':scope > ul');
    if (group) {
      for (const d of group.querySelectorAll('li[data-i]')) this.items.delete(Number(d.dataset.i));
      group.remove();
    }
  }

  // The li of group `i`, rendering (expanding its ancestors, showing more
  // of its siblings) as needed.
  ensureItem(i) {
    if (this.items.has(i)) return this.items.get(i);
    const p = this.model.parent[i];
    let ul = this.ul;
    if (p >= 0) {
      if (!this.ensureItem(p)) return null;
      this.expand(p);
      ul = this.items.get(p).querySelector(':scope > ul');
    }
    while (!this.items.has(i)) {
      const more = ul && ul.querySelector(':scope > li.more');
      if (!more) return null;
      this.showMore(more);
    }
    return this.items.get(i);
  }

  // Shows group `i` (its ancestors expanded), scrolled into view, selected.
  reveal(i, notify = true) {
    const li = this.ensureItem(i);
    if (!li) return;
    this.select(i, notify);
    li.scrollIntoView({ block: 'nearest' });
  }

  showMore(more) {
    const parent = Number(more.dataset.parent);
    const ul = more.parentElement;
    more.remove();
    this.renderChildren(parent, ul, Number(more.dataset.from));
  }

  select(i, notify = true) {
    const old = this.items.get(this.selected);
    if (old) old.setAttribute('aria-selected', 'false');
    this.selected = i;
    const li = this.items.get(i);
    if (li) {
      li.setAttribute('aria-selected', 'true');
      this.setFocusable(li);
    }
    if (notify) this.h.onSelect(i);
  }

  setFocusable(li) {
    if (!li) return;
    for (const f of this.ul.querySelectorAll('[tabindex="0"]')) f.tabIndex = -1;
    li.tabIndex = 0;
  }

  focus(li) {
    if (!li) return;
    this.setFocusable(li);
    li.focus();
  }

  indexOf(li) { return li && li.dataset.i !== undefined ? Number(li.dataset.i) : -1; }

  onClick(e) {
    const li = e.target.closest('li[role="treeitem"]');
    if (!li) return;
    if (li.classList.contains('more')) return this.showMore(li);
    const i = this.indexOf(li);
    if (e.target.classList.contains('twisty')) {
      if (this.expanded.has(i)) this.collapse(i); else this.expand(i);
      this.focus(li);
      return;
    }
    this.select(i);
    this.focus(li);
  }

  next(li) {
    const group = li.querySelector(':scope > ul');
    if (group && group.firstElementChild) return group.firstElementChild;
    for (let n = li; n; n = n.parentElement.closest('li')) {
      if (n.nextElementSibling) return n.nextElementSibling;
      if (n.parentElement === this.ul) return null;
    }
    return null;
  }

  prev(li) {
    let p = li.previousElementSibling;
    if (!p) return li.parentElement === this.ul ? null : li.parentElement.closest('li');
    for (let g = p.querySelector(':scope > ul'); g && g.lastElementChild; g = p.querySelector(':scope > ul')) {
      p = g.lastElementChild;
    }
    return p;
  }

  onKey(e) {
    const li = e.target.closest('li[role="treeitem"]');
    if (!li) return;
    const i = this.indexOf(li);
    let handled = true;
    switch (e.key) {
      case 'ArrowDown': this.focus(this.next(li)); break;
      case 'ArrowUp': this.focus(this.prev(li)); break;
      case 'ArrowRight':
        if (i >= 0 && this.model.children[i].length) {
          if (!this.expanded.has(i)) this.expand(i);
          else this.focus(li.querySelector(':scope > ul > li'));
        }
        break;
      case 'ArrowLeft':
        if (i >= 0 && this.expanded.has(i)) this.collapse(i);
        else if (li.parentElement !== this.ul) this.focus(li.parentElement.closest('li'));
        break;
      case 'Home': this.focus(this.ul.firstElementChild); break;
      case 'End': {
        let last = this.ul.lastElementChild;
        while (last && last.querySelector(':scope > ul')?.lastElementChild) last = last.querySelector(':scope > ul').lastElementChild;
        this.focus(last);
        break;
      }
      case 'Enter':
      case ' ':
        if (li.classList.contains('more')) {
          const prev = li.previousElementSibling;
          this.showMore(li);
          this.focus(prev?.nextElementSibling);
        } else {
          this.select(i);
        }
        break;
      default: handled = false;
    }
    if (handled) e.preventDefault();
  }

  onDragStart(e) {
    const li = e.target.closest('li[data-i]');
    if (!li) return;
    this.dragged = this.indexOf(li);
    e.dataTransfer.effectAllowed = 'move';
    e.dataTransfer.setData('text/plain', this.model.code[this.dragged]);
  }

  zone(e, row) {
    const r = row.getBoundingClientRect();
    const y = e.clientY - r.top;
    return y < r.height * 0.25 ? 'before' : y > r.height * 0.75 ? 'after' : 'inside';
  }

  clearDrop(row) {
    for (const r of row ? [row] : this.ul.querySelectorAll('.drop-before, .drop-after, .drop-inside')) {
      r.classList.remove('drop-before', 'drop-after', 'drop-inside');
    }
  }

  onDragOver(e) {
    const row = e.target.closest('.row');
    if (!row || this.dragged < 0) return;
    const target = this.indexOf(row.parentElement);
    const zone = this.zone(e, row);
    const parent = zone === 'inside' ? target : this.model.parent[target];
    // Never onto itself or below itself.
    if (this.model.within(target, this.dragged) || (parent >= 0 && this.model.within(parent, this.dragged))) return;
    e.preventDefault();
    e.dataTransfer.dropEffect = 'move';
    this.clearDrop();
    row.classList.add(`drop-${zone}`);
  }

  onDrop(e) {
    const row = e.target.closest('.row');
    if (!row || this.dragged < 0) return;
    e.preventDefault();
    const target = this.indexOf(row.parentElement);
    const zone = this.zone(e, row);
    const moved = this.dragged;
    this.dragged = -1;
    this.clearDrop();
    this.h.onDrop(moved, target, zone);
  }
}
