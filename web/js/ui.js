// Small helpers shared by the screens: building elements, the message and
// error areas, the confirmation dialog.
import { explainError, t } from './texts.js';
import { ServerError } from './api.js';

export const $ = (id) => document.getElementById(id);

// el('button', {type: 'button', class: 'x', onclick: f}, 'text', child...)
export function el(tag, attrs = {}, ...children) {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (v === undefined || v === null || v === false) continue;
    if (k.startsWith('on')) e.addEventListener(k.slice(2), v);
    else if (k === 'class') e.className = v;
    else if (k === 'dataset') Object.assign(e.dataset, v);
    else if (v === true) e.setAttribute(k, '');
    else e.setAttribute(k, v);
  }
  for (const c of children) if (c !== null && c !== undefined) e.append(c);
  return e;
}

let messageTimer = 0;

// `action`: {label, run, ms}, a button beside the text (undo) for `ms`.
export function showMessage(text, action) {
  const m = $('message');
  m.replaceChildren(text);
  if (action) {
    m.append(' ', el('button', { type: 'button', onclick: () => { m.hidden = true; action.run(); } }, action.label));
  }
  m.hidden = false;
  clearTimeout(messageTimer);
  messageTimer = setTimeout(() => { m.hidden = true; }, action?.ms ?? 6000);
}

export function clearError() { $('error').hidden = true; }

// Inputs carry data-field="<wire field>": an answer naming a field puts its
// reason beside that input (in the open dialog first, else the visible
// screen).
export function markField(field, reason) {
  const sel = `[data-field="${CSS.escape(field)}"]`;
  const scopes = [document.activeElement?.closest('form'), document.querySelector('dialog[open]'),
    document.querySelector('.screen:not([hidden])')];
  const input = scopes.map((s) => s?.querySelector(sel)).find(Boolean);
  if (!input) return false;
  setFieldError(input, reason);
  input.focus();
  return true;
}

// Shows `reason` under `input` ('' clears it).
export function setFieldError(input, reason) {
  const label = input.closest('label') ?? input.parentElement;
  let note = label.querySelector(':scope > .field-error');
  if (!reason) {
    note?.remove();
    input.removeAttribute('aria-invalid');
    return;
  }
  if (!note) {
    note = el('small', { class: 'field-error', role: 'alert' });
    label.append(note);
  }
  note.textContent = reason;
  input.setAttribute('aria-invalid', 'true');
}

// The error box stands in the open dialog, if any (a modal dialog makes
// the rest of the page inert), else under the header.
function placeErrorBox() {
  const box = $('error');
  const dialog = document.querySelector('dialog[open]');
  const home = dialog ? dialog.querySelector('form') : $('message').parentElement;
  if (dialog) {
    if (box.parentElement !== home) home.prepend(box);
  } else if (box.parentElement !== home) {
    $('message').after(box);
  }
  return box;
}

// Shows a failure; `actions` are extra buttons ({label, run}).
let lastError = null;  // what the error box shows, to show it again in the other language

// `messageKey`: a text that says more than the code's own meaning here.
export function showError(err, actions = [], messageKey = '') {
  lastError = { err, actions, messageKey };
  const box = placeErrorBox();
  const human = $('error-human');
  human.replaceChildren();
  $('error-actions').replaceChildren();
  if (err instanceof ServerError) {
    const answer = err.answer;
    if (answer === 'ERROR:NETWORK') {
      $('error-text').textContent = t('error.network');
    } else if (answer.startsWith('ERROR:HTTP')) {
      $('error-text').textContent = t('error.http', answer.slice(10));
    } else {
      const e = explainError(answer);
      $('error-text').replaceChildren((messageKey && t(messageKey)) || e.message || t('error.heading'), ' ', el('span', { class: 'code' }, `(${e.code || answer})`));
      for (const line of e.human) human.append(el('li', {}, line));
      if (e.field) markField(e.field, e.reason);
    }
    $('error-details').textContent = answer;
  } else {
    $('error-text').textContent = t('error.unknown', String(err && err.message || err));
    $('error-details').textContent = String(err && err.stack || err);
  }
  for (const a of actions) {
    $('error-actions').append(el('button', { type: 'button', onclick: () => { clearError(); a.run(); } }, a.label));
  }
  box.hidden = false;
  box.scrollIntoView({ block: 'nearest' });
}

// After a language switch: a shown error in the new language, a hidden
// one emptied.
export function retranslateError() {
  if (!$('error').hidden && lastError) return showError(lastError.err, lastError.actions, lastError.messageKey);
  if ($('error').hidden) {
    for (const id of ['error-text', 'error-human', 'error-actions', 'error-details']) $(id).replaceChildren();
  }
}

export function showProblem(text) {
  lastError = null;
  placeErrorBox();
  $('error-text').textContent = text;
  $('error-human').replaceChildren();
  $('error-actions').replaceChildren();
  $('error-details').textContent = '';
  $('error').hidden = false;
}

// Resolves true when the administrator confirms.
export function confirmDialog(text) {
  const d = $('confirm');
  $('confirm-text').textContent = text;
  d.returnValue = '';
  d.showModal();
  return new Promise((resolve) => {
    d.addEventListener('close', () => {
      $('confirm-text').textContent = '';
      resolve(d.returnValue === 'ok');
    }, { once: true });
  });
}

// Runs a request handler with errors shown instead of thrown; returns its
// value, or undefined after a failure.
export async function guarded(fn, actions) {
  try {
    return await fn();
  } catch (err) {
    showError(err, actions);
    return undefined;
  }
}

export function clearFieldErrors(root) {
  for (const input of root.querySelectorAll('[aria-invalid="true"]')) setFieldError(input, '');
}
