// The start of the pages: language, login and logout, the screens and
// their addresses.
import * as api from './api.js';
import { setLanguage, language, t, translate } from './texts.js';
import { $, clearError, retranslateError } from './ui.js';
import * as router from './router.js';
import { watchFields, loadFieldRules } from './fieldcheck.js';
import { enableSearch, watchSearch } from './search.js';
import { activity, startSessionTimer, stopSessionTimer, retranslateSessionTimer } from './session_timer.js';
import { GroupsScreen } from './groups.js';
import { MembersScreen } from './members.js';
import { UsersScreen } from './users.js';
import { MenusScreen } from './menus.js';
import { HistoryScreen } from './history.js';
import { historyAvailable } from './history_list.js';
import { retranslateHistorySections } from './history_section.js';
import { TransferScreen } from './transfer.js';

const screens = {};
let current = 'login';
let loggedIn = false;
let waiting = [];  // resolvers of requests waiting for a login after a lost session
let justLoggedIn = false;
let routed = null;  // the address last shown (null: none yet)

function show(name) {
  for (const s of document.querySelectorAll('.screen')) s.hidden = s.id !== `screen-${name}`;
  for (const b of document.querySelectorAll('#nav button')) {
    if (b.dataset.screen === name) b.setAttribute('aria-current', 'page');
    else b.removeAttribute('aria-current');
  }
  current = name;
}

let navigation = 0;  // raised by every opening: the latest one wins

// Opens a screen; `arg` comes from the screen that sends there or from the
// address. Afterwards the address says where the screen is. A screen
// still loading when another opening starts learns it from `isCurrent`
// and shows nothing more of the older one.
export async function openScreen(name, arg, fromAddress = false) {
  const token = ++navigation;
  const isCurrent = () => token === navigation;
  clearError();
  show(name);
  const screen = screens[name];
  await screen?.open(arg, isCurrent);
  if (isCurrent() && current === name && screen?.place) place(name, screen.place(), fromAddress);
}

// A screen's new place: a history entry, or the current one replaced
// while an address is being followed (it only fills in what the address
// left out, like the first group of a bare address).
export function place(name, params, replace = false) {
  if (!loggedIn || current !== name) return;
  router.report(name, params, replace || following > 0);
  routed = location.hash;
}

let following = 0;

async function route() {
  if (!loggedIn || location.hash === routed) return;
  routed = location.hash;
  const r = router.parse() ?? { screen: 'groups', params: {} };
  following++;
  try {
    await openScreen(r.screen, { route: r.params }, true);
  } finally {
    following--;
  }
}

function showLogin(note) {
  $('login-note').textContent = note;
  for (const s of document.querySelectorAll('.screen')) s.hidden = s.id !== 'screen-login';
  $('nav').hidden = true;
  $('logout').hidden = true;
  $('login-password').value = '';
  $('login-user').focus();
}

// The session is gone in the middle of work: the screen stays as it is
// (hidden), the login comes up, and the requests are sent again after it.
api.onSessionLost(() => {
  if (!waiting.length) {
    stopSessionTimer();
    const note = justLoggedIn ? t('login.notAdmin') : t('login.expired');
    loggedIn = false;
    showLogin(note);
  }
  return new Promise((resolve) => { waiting.push(resolve); });
});

api.onBusy((busy) => {
  $('busy').textContent = busy ? t('busy') : '';
  document.body.classList.toggle('is-busy', busy);
});

function enter(user) {
  loggedIn = true;
  try { sessionStorage.setItem('orvane.who', user); } catch (e) { /* shown until F5 only */ }
  $('who').textContent = user ? t('who', user) : '';
  $('nav').hidden = false;
  $('logout').hidden = false;
  loadFieldRules();
  startSessionTimer();
  enableSearch();
  historyAvailable().then((yes) => { document.querySelector('#nav [data-screen="history"]').hidden = !yes; });
}

function who() {
  try { return sessionStorage.getItem('orvane.who') ?? ''; } catch (e) { return ''; }
}

async function submitLogin(ev) {
  ev.preventDefault();
  const user = $('login-user').value.trim();
  const ok = await api.login(user, $('login-password').value).catch(() => false);
  if (!ok) {
    $('login-note').textContent = t('login.failed');
    $('login-password').select();
    return;
  }
  justLoggedIn = true;
  setTimeout(() => { justLoggedIn = false; }, 3000);
  enter(user);
  if (waiting.length) {
    const w = waiting;
    waiting = [];
    show(current === 'login' ? 'groups' : current);
    for (const resolve of w) resolve();
  } else {
    // Back to the address the page was opened with, if any.
    routed = null;
    route();
  }
}

function switchLanguage() {
  setLanguage(language() === 'ja' ? 'en' : 'ja');
  translate();
  for (const s of Object.values(screens)) s.retranslate?.();
  retranslateError();
  retranslateSessionTimer();
  retranslateHistorySections();
  $('search-results').replaceChildren();  // asked again in the new language
  $('search-results').hidden = true;
  if (loggedIn) $('who').textContent = who() ? t('who', who()) : '';
}

async function start() {
  setLanguage(language());
  translate();
  const ctx = { openScreen, place };
  screens.groups = new GroupsScreen(ctx);
  screens.members = new MembersScreen(ctx);
  screens.users = new UsersScreen(ctx);
  screens.menus = new MenusScreen(ctx);
  screens.history = new HistoryScreen(ctx);
  screens.transfer = new TransferScreen(ctx);
  watchFields();
  watchSearch();
  api.onAnswer(activity);
  $('session-stay').addEventListener('click', () => api.request('109').catch(() => {}));
  $('login-form').addEventListener('submit', submitLogin);
  $('lang').addEventListener('click', switchLanguage);
  $('logout').addEventListener('click', async () => {
    await api.logout().catch(() => {});
    loggedIn = false;
    stopSessionTimer();
    $('search-box').hidden = true;
    $('who').textContent = '';
    try { sessionStorage.removeItem('orvane.who'); } catch (e) { /* nothing kept */ }
    showLogin(t('login.intro'));
  });
  $('error-close').addEventListener('click', clearError);
  for (const b of document.querySelectorAll('#nav button')) {
    b.addEventListener('click', () => openScreen(b.dataset.screen));
  }
  window.addEventListener('popstate', route);
  window.addEventListener('hashchange', route);
  showLogin(t('login.intro'));
  // F5 or a link: with a live session the address opens at once; without
  // one, the login comes first and then the address.
  if (await api.hasSession().catch(() => false)) {
    enter(who());
    route();
  }
}

start();
