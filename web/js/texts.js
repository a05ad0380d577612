// Every text of the pages, Japanese and English, gathered from one file per
// screen (texts/), and what each "ERROR:" code of the server means.
// Japanese is the default; the choice is remembered.
import common from './texts/common.js';
import groups from './texts/groups.js';
import members from './texts/members.js';
import users from './texts/users.js';
import menus from './texts/menus.js';
import history from './texts/history.js';
import transfer from './texts/transfer.js';
import { ERRORS } from './texts/errors.js';

export { ERRORS };

const PARTS = [common, groups, members, users, menus, history, transfer];
export const TEXTS = {
  ja: Object.assign({}, ...PARTS.map((p) => p.ja)),
  en: Object.assign({}, ...PARTS.map((p) => p.en)),
};

let lang = 'ja';
try {
  if (localStorage.getItem('orvane.lang') === 'en') lang = 'en';
} catch (e) { /* storage may be off: Japanese */ }

export function language() { return lang; }

export function setLanguage(l) {
  lang = l === 'en' ? 'en' : 'ja';
  try { localStorage.setItem('orvane.lang', lang); } catch (e) { /* not kept */ }
  document.documentElement.lang = lang;
}

export function t(key, ...args) {
  const text = TEXTS[lang][key] ?? TEXTS.ja[key] ?? key;
  return text.replace(/\{(\d)\}/g, (_, i) => String(args[Number(i)] ?? ''));
}

// Fills every element marked with data-t (text), data-t-label (aria-label),
// data-t-title and data-t-placeholder under `root`.
export function translate(root = document) {
  for (const el of root.querySelectorAll('[data-t]')) el.textContent = t(el.dataset.t);
  for (const el of root.querySelectorAll('[data-t-label]')) el.setAttribute('aria-label', t(el.dataset.tLabel));
  for (const el of root.querySelectorAll('[data-t-title]')) el.title = t(el.dataset.tTitle);
  for (const el of root.querySelectorAll('[data-t-placeholder]')) el.placeholder = t(el.dataset.tPlaceholder);
}

// An "ERROR:" answer as a message: the meaning of its code, any Japanese
// message the server wrote (shown as it is), and the rest as details.
export function explainError(answer) {
  const body = answer.slice('ERROR:'.length);
  // The longest known code the answer starts with: a trail may follow
  // without a blank ("ADDMAILUSERExecute Error(2)").
  let code = Object.keys(ERRORS).filter((c) => body.startsWith(c)).sort((a, b) => b.length - a.length)[0];
  if (!code) code = (/^[A-Z_]+/.exec(body) ?? [''])[0];
  const trail = body.slice(code.length).trim();
  const lines = trail.split(/\r?\n|<BR>/i).map((l) => l.trim()).filter(Boolean);
  // Messages for people are the lines written in Japanese; routine names
  // and statements are details.
  const human = lines.filter((l) => /[\u3000-\u9fff\uff00-\uffef]/.test(l) && !/^\[/.test(l) && !/SQL :/.test(l));
  const known = ERRORS[code];
  let message = known ? known[lang === 'en' ? 1 : 0] : '';
  if (!message && !human.length) message = t('error.unknown', code || answer);
  // "ERROR:INVALIDVALUE" names the field: "<field>: <reason>".
  let field = '';
  let reason = '';
  if (code === 'INVALIDVALUE' && lines.length) {
    const m = /^([A-Za-z0-9_]+): (.*)$/.exec(lines[0]);
    if (m) [, field, reason] = m;
  }
  return { code, message, human, details: answer, field, reason };
}
