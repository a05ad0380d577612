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

export function showMessage(text) {
  const m = $('message');
  m.textContent = text;
  m.hidden = false;
  clearTimeout(messageTimer);
  messageTimer = setTimeout(() => { m.hidden = true; }, 6000);
}

export function clearError() { $('error').hidden = true; }

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
export function showError(err, actions = []) {
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
      $('error-text').textContent = e.message;
      for (const line of e.human) human.append(el('li', {}, line));
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

export function showProblem(text) {
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
    d.addEventListener('close', () => resolve(d.returnValue === 'ok'), { once: true });
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
