// A user's menu rights (110) as checkboxes named from the catalogue, saved
// with 213.
import * as api from './api.js';
import { t } from './texts.js';
import { $, el, showMessage, guarded, clearError } from './ui.js';

export class MenusScreen {
  constructor({ place }) {
    this.placed = place;
    this.user = '';
    this.entries = [];  // {code, name, granted}
    $('menu-load').addEventListener('submit', (e) => { e.preventDefault(); this.load($('menu-user').value.trim()); });
    $('menu-form').addEventListener('submit', (e) => { e.preventDefault(); this.save(); });
    $('menu-all').addEventListener('click', () => this.setAll(true));
    $('menu-clear').addEventListener('click', () => this.setAll(false));
  }

  // `arg.user` from the users screen, `arg.route.u` from the address.
  async open(arg) {
    const user = arg?.user ?? arg?.route?.u;
    if (user && user !== this.user) {
      $('menu-user').value = user;
      await this.load(user);
    }
  }

  place() { return { u: this.user }; }

  retranslate() { if (this.user) $('menu-legend').textContent = t('menus.of', this.user); }

  async load(user) {
    if (!user) return;
    clearError();
    const token = this.loading = (this.loading ?? 0) + 1;
    await guarded(async () => {
      const answer = await api.request('110', { User_cd: user });
      if (token !== this.loading) return;  // another user was asked for meanwhile: that one is shown
      // USER_ID,/codes/,/names/,/granted/: a name may hold a comma, so the
      // names are what lies between the second and the last field.
      const first = answer.indexOf(',');
      const last = answer.lastIndexOf(',');
      const second = answer.indexOf(',', first + 1);
      const codes = answer.slice(first + 1, second).split('/').filter(Boolean);
      const names = answer.slice(second + 1, last).split('/').slice(1, -1);
      const granted = answer.slice(last + 1).split('/').filter(Boolean);
      this.user = user;
      this.entries = codes.map((code, k) => ({ code, name: names[k] ?? code, granted: granted[k] === code }));
      this.render(answer.slice(0, first) === user);
      this.placed('menus', this.place());
    });
  }

  render(hasRow) {
    $('menus-none').hidden = true;
    $('menu-form').hidden = false;
    $('menu-legend').textContent = t('menus.of', this.user);
    const boxes = this.entries.map((e) => {
      const box = el('input', { type: 'checkbox', value: e.code, id: `menu-${e.code}` });
      box.checked = e.granted;
      return el('label', { class: 'inline check' }, box, ` ${e.name} `, el('span', { class: 'code' }, e.code));
    });
    if (!hasRow) boxes.unshift(el('p', { class: 'help' }, t('menus.noRow')));
    $('menu-boxes').replaceChildren(...boxes);
  }

  setAll(on) {
    for (const b of $('menu-boxes').querySelectorAll('input[type=checkbox]')) b.checked = on;
  }

  async save() {
    const chosen = [...$('menu-boxes').querySelectorAll('input:checked')].map((b) => b.value);
    const done = await guarded(() => api.request('213', {
      User_cd: this.user, User_Menu: chosen.length ? `/${chosen.join('/')}/` : '',
    }));
    if (done === undefined) return;
    showMessage(t('menus.saved'));
    await this.load(this.user);
  }
}
