// The start of the pages: language, login and logout, the screens.
import * as api from './api.js';
import { setLanguage, language, t, translate } from './texts.js';
import { $, clearError } from './ui.js';
import { GroupsScreen } from './groups.js';
import { MembersScreen } from './members.js';
import { UsersScreen } from './users.js';
import { MenusScreen } from './menus.js';

const screens = {};
let current = 'login';
let loggedIn = false;
let pendingLogin = null;  // {resolve} while a lost session waits for a login
let justLoggedIn = false;

function show(name) {
  for (const s of document.querySelectorAll('.screen')) s.hidden = s.id !== `screen-${name}`;
  for (const b of document.querySelectorAll('#nav button')) {
    if (b.dataset.screen === name) b.setAttribute('aria-current', 'page');
    else b.removeAttribute('aria-current');
  }
  current = name;
}

export function openScreen(name, arg) {
  clearError();
  show(name);
  screens[name]?.open(arg);
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
// (hidden), the login comes up, and the request is sent again after it.
api.onSessionLost(() => {
  const note = justLoggedIn ? t('login.notAdmin') : t('login.expired');
  loggedIn = false;
  showLogin(note);
  return new Promise((resolve) => { pendingLogin = { resolve }; });
});

api.onBusy((busy) => {
  $('busy').textContent = busy ? t('busy') : '';
  document.body.classList.toggle('is-busy', busy);
});

async function submitLogin(ev) {
  ev.preventDefault();
  const user = $('login-user').value.trim();
  const ok = await api.login(user, $('login-password').value).catch(() => false);
  if (!ok) {
    $('login-note').textContent = t('login.failed');
    $('login-password').select();
    return;
  }
  loggedIn = true;
  justLoggedIn = true;
  setTimeout(() => { justLoggedIn = false; }, 3000);
  $('who').textContent = t('who', user);
  $('nav').hidden = false;
  $('logout').hidden = false;
  if (pendingLogin) {
    const p = pendingLogin;
    pendingLogin = null;
    show(current === 'login' ? 'groups' : current);
    p.resolve();
  } else {
    openScreen('groups');
  }
}

function switchLanguage() {
  setLanguage(language() === 'ja' ? 'en' : 'ja');
  translate();
  for (const s of Object.values(screens)) s.retranslate?.();
  const who = $('who').textContent;
  if (loggedIn && who) $('who').textContent = t('who', $('login-user').value.trim());
}

function start() {
  setLanguage(language());
  translate();
  screens.groups = new GroupsScreen({ openScreen });
  screens.members = new MembersScreen({ openScreen });
  screens.users = new UsersScreen({ openScreen });
  screens.menus = new MenusScreen({ openScreen });
  $('login-form').addEventListener('submit', submitLogin);
  $('lang').addEventListener('click', switchLanguage);
  $('logout').addEventListener('click', async () => {
    await api.logout().catch(() => {});
    loggedIn = false;
    $('who').textContent = '';
    showLogin(t('login.intro'));
  });
  $('error-close').addEventListener('click', clearError);
  for (const b of document.querySelectorAll('#nav button')) {
    b.addEventListener('click', () => openScreen(b.dataset.screen));
  }
  showLogin(t('login.intro'));
}

start();
