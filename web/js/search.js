// One search box for every screen: users and groups as one types, from
// GET /api/search; each result is a link to its screen. A server without
// the endpoint keeps the box hidden.
import { t } from './texts.js';
import { $, el } from './ui.js';
import { format } from './router.js';

let timer = 0;
let asked = 0;

async function ask(q) {
  const r = await fetch(`/api/search?q=${encodeURIComponent(q)}`, { credentials: 'same-origin', cache: 'no-store' });
  if (!r.ok) return null;
  return r.json();
}

// Shows the box when the server answers searches.
export async function enableSearch() {
  if (!$('search-box').hidden) return;
  const answer = await ask('').catch(() => null);
  $('search-box').hidden = answer === null;
}

function render(answer) {
  const list = $('search-results');
  const users = answer?.users ?? [];
  const groups = answer?.groups ?? [];
  const close = () => { list.hidden = true; };
  const items = [
    ...groups.map((g) => el('li', {}, el('a', { href: format('groups', { g: g.code }), onclick: close },
      g.name || g.code, ' ', el('span', { class: 'code' }, `${t('search.group')} ${g.code}`)))),
    ...users.map((u) => el('li', {}, el('a', { href: format('users', { u: u.id }), onclick: close },
      u.name || u.id, ' ', el('span', { class: 'code' }, [u.reading, u.id, u.mail].filter(Boolean).join(' · '))))),
  ];
  list.replaceChildren(...(items.length ? items : [el('li', { class: 'help' }, t('search.none'))]));
  list.hidden = false;
}

export function watchSearch() {
  const input = $('search');
  input.addEventListener('input', () => {
    clearTimeout(timer);
    const q = input.value.trim();
    if (!q) {
      $('search-results').hidden = true;
      return;
    }
    timer = setTimeout(async () => {
      const n = ++asked;
      const answer = await ask(q).catch(() => null);
      if (n === asked) render(answer);
    }, 200);
  });
  input.addEventListener('keydown', (e) => {
    if (e.key === 'Escape') $('search-results').hidden = true;
    if (e.key === 'ArrowDown') $('search-results').querySelector('a')?.focus();
  });
  document.addEventListener('click', (e) => {
    if (!e.target.closest?.('#search-box')) $('search-results').hidden = true;
  });
}
