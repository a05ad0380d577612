// The transfer screen: the organisation's four CSV files to download, and
// an upload of any of them previewed line by line (counts at the top,
// errors first) before it is applied all at once, with the progress while
// it runs and its report to download (GET /api/export, POST
// /api/import/preview and /apply, GET /api/import/progress; docs/api.md).
import { t } from './texts.js';
import { $, el, showProblem } from './ui.js';

const FILES = ['sections.csv', 'users.csv', 'memberships.csv', 'menu_rights.csv'];
const ACTIONS = ['add', 'change', 'unchanged', 'delete', 'error'];

function base64(buffer) {
  const bytes = new Uint8Array(buffer);
  let s = '';
  for (let i = 0; i < bytes.length; i += 0x8000) s += String.fromCharCode(...bytes.subarray(i, i + 0x8000));
  return btoa(s);
}

async function postJson(path, body) {
  const r = await fetch(path, {
    method: 'POST', credentials: 'same-origin', headers: { 'Content-Type': 'application/json' }, body,
  });
  const answer = await r.json().catch(() => ({}));
  if (!r.ok) throw new Error(answer.message ?? answer.error ?? String(r.status));
  return answer;
}

// The outcome in the page's language, from the numbers the server counted;
// a refusal the page has no words for (a failed step) as the server says it.
function summary(result) {
  if (result.applied) {
    const text = t('transfer.applied', result.added, result.changed, result.deleted);
    return result.mail_failures ? `${text} ${t('transfer.mailFailed', result.mail_failures)}` : text;
  }
  const errors = result.plan?.counts?.error ?? 0;
  return errors ? t('transfer.linesErr', errors) : `${t('transfer.notApplied')} ${result.refusal}`;
}

export class TransferScreen {
  constructor() {
    this.body = null;  // the last upload, applied as it was previewed
    this.build();
  }

  build() {
    const encoding = (id) => el('select', { id },
      el('option', { value: 'utf-8' }, 'UTF-8'), el('option', { value: 'shift_jis' }, 'Shift_JIS'));
    const exports = FILES.map((f) => el('a', { class: 'button', 'data-file': f, download: f, href: '#' }, f));
    this.exportLinks = exports;
    $('screen-transfer').replaceChildren(
      el('div', { class: 'card' },
        el('h2', { id: 'transfer-heading', 'data-t': 'transfer.heading' }, t('transfer.heading')),
        el('p', { 'data-t': 'transfer.exportNote' }, t('transfer.exportNote')),
        el('div', { class: 'actions' }, ...exports,
          el('label', { class: 'inline' }, el('span', { 'data-t': 'transfer.encoding' }, t('transfer.encoding')), ' ',
            encoding('transfer-export-encoding')))),
      el('form', { id: 'transfer-form', class: 'card' },
        el('h2', { 'data-t': 'transfer.importHeading' }, t('transfer.importHeading')),
        el('div', { class: 'actions' },
          el('input', { id: 'transfer-files', type: 'file', multiple: true, accept: '.csv,text/csv' }),
          el('label', { class: 'inline' }, el('span', { 'data-t': 'transfer.encoding' }, t('transfer.encoding')), ' ',
            encoding('transfer-encoding')),
          el('label', { class: 'inline' }, el('input', { id: 'transfer-delete', type: 'checkbox' }), ' ',
            el('span', { 'data-t': 'transfer.deleteMissing' }, t('transfer.deleteMissing')))),
        el('div', { class: 'actions' },
          el('button', { type: 'submit', id: 'transfer-preview', 'data-t': 'transfer.preview' }, t('transfer.preview')),
          el('button', { type: 'button', id: 'transfer-apply', class: 'primary', disabled: true,
            'data-t': 'transfer.apply' }, t('transfer.apply')))),
      el('div', { id: 'transfer-result', class: 'card', hidden: true },
        el('p', { id: 'transfer-summary' }),
        el('progress', { id: 'transfer-progress', hidden: true }),
        el('a', { id: 'transfer-report', class: 'button', download: 'import-report.csv', hidden: true,
          'data-t': 'transfer.report' }, t('transfer.report')),
        el('table', { id: 'transfer-counts' }),
        el('ul', { id: 'transfer-lines' })));
    const exportHref = () => {
      const enc = $('transfer-export-encoding').value;
      for (const a of this.exportLinks) a.href = `/api/export?file=${a.dataset.file}${enc === 'utf-8' ? '' : `&encoding=${enc}`}`;
    };
    $('transfer-export-encoding').addEventListener('change', exportHref);
    exportHref();
    $('transfer-form').addEventListener('submit', (e) => { e.preventDefault(); this.preview(); });
    $('transfer-apply').addEventListener('click', () => this.apply());
  }

  async open() {}

  async upload() {
    const files = [...$('transfer-files').files];
    const parts = await Promise.all(files.map(async (f) => ({ name: f.name, content: base64(await f.arrayBuffer()) })));
    return JSON.stringify({ files: parts, encoding: $('transfer-encoding').value, delete_missing: $('transfer-delete').checked });
  }

  showPlan(plan) {
    $('transfer-result').hidden = false;
    const head = el('tr', {}, ...ACTIONS.map((a) => el('th', {}, t(`transfer.${a}`))));
    const counts = el('tr', {}, ...ACTIONS.map((a) => el('td', { 'data-action': a }, String(plan.counts[a]))));
    $('transfer-counts').replaceChildren(head, counts);
    $('transfer-lines').replaceChildren(...plan.lines.map((l) => {
      const where = l.line ? `${l.file} ${t('transfer.line', l.line)}` : l.file;
      const what = l.action === 'error' ? l.error
        : l.changes.map((c) => (c.column === 'password' ? c.column : `${c.column}: ${c.before} → ${c.after}`)).join(', ');
      return el('li', { class: `transfer-${l.action}` }, `${t(`transfer.${l.action}`)}: ${where}: ${l.key}${what ? ` (${what})` : ''}`);
    }));
    $('transfer-apply').disabled = !plan.can_apply;
  }

  async preview() {
    $('transfer-report').hidden = true;
    $('transfer-summary').textContent = '';
    try {
      this.body = await this.upload();
      const plan = await postJson('/api/import/preview', this.body);
      this.showPlan(plan);
      $('transfer-summary').textContent = plan.can_apply ? t('transfer.ready') : t('transfer.refused');
    } catch (e) {
      showProblem(String(e.message));
    }
  }

  async apply() {
    if (!this.body) return;
    $('transfer-apply').disabled = true;
    const bar = $('transfer-progress');
    bar.hidden = false;
    bar.removeAttribute('value');
    const poll = setInterval(async () => {
      const p = await fetch('/api/import/progress', { credentials: 'same-origin' }).then((r) => r.json()).catch(() => null);
      if (p?.total) { bar.max = p.total; bar.value = p.done; }
    }, 500);
    try {
      const result = await postJson('/api/import/apply', this.body);
      $('transfer-summary').textContent = summary(result);
      if (result.plan) this.showPlan(result.plan);
      const link = $('transfer-report');
      if (result.applied) {
        link.href = URL.createObjectURL(new Blob([result.report], { type: 'text/csv' }));
        link.hidden = false;
      }
    } catch (e) {
      showProblem(String(e.message));
    } finally {
      clearInterval(poll);
      bar.hidden = true;
    }
  }
}
