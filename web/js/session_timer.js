// A warning two minutes before the login session ends for idleness, with a
// button that keeps it (any answer of the server restarts its idle time).
// The length is the server's `X-Session-Timeout` (seconds) when it sends
// one, else serve's default of twenty minutes.
import { t } from './texts.js';
import { $ } from './ui.js';

const WARN_BEFORE = 120 * 1000;
let timeout = 20 * 60 * 1000;
let warnTimer = 0;
let endTimer = 0;
let running = false;

function warn() {
  $('session-warning-text').textContent = t('session.warning');
  $('session-stay').hidden = false;
  $('session-warning').hidden = false;
}

function ended() {
  $('session-warning-text').textContent = t('session.ended');
  $('session-stay').hidden = true;
  $('session-warning').hidden = false;
}

// The server answered: the idle time starts again.
export function activity(headers) {
  const s = Number(headers?.get?.('X-Session-Timeout'));
  if (s > 0) timeout = s * 1000;
  if (!running) return;
  clearTimeout(warnTimer);
  clearTimeout(endTimer);
  $('session-warning').hidden = true;
  warnTimer = setTimeout(warn, Math.max(0, timeout - WARN_BEFORE));
  endTimer = setTimeout(ended, timeout);
}

export function startSessionTimer() {
  running = true;
  activity();
}

export function stopSessionTimer() {
  running = false;
  clearTimeout(warnTimer);
  clearTimeout(endTimer);
  $('session-warning').hidden = true;
}

export function retranslateSessionTimer() {
  if (!$('session-warning').hidden) {
    if ($('session-stay').hidden) ended(); else warn();
  }
}
