// Checks as one types, by the server's own rules: GET /api/field-rules
// says which kind each field of each changing request has; the kinds'
// rules are applied here as the server applies them. A server without the
// endpoint leaves the fields unchecked until the answer comes.
import { json } from './api.js';
import { t } from './texts.js';
import { setFieldError } from './ui.js';

const CONTROL = /[\u0000-\u001f\u007f]/;
const PHONE = /^[0-9 +\-()]{0,32}$/;
const DATE = /^\d{8}$/;

let kinds = null;  // "request field" -> {kind, required, checked}

let loading = null;

// Asked once per login (the endpoint is behind the administrator check);
// resolves when the rules are known or known to be missing.
export function loadFieldRules() {
  if (!kinds) loading = fetchRules();
  return loading;
}

// Whether the server's rules name `field` of request `code` (a field a
// newer server accepts, like 202's department code).
export async function knows(code, field) {
  await loading;
  return kinds?.has(`${code} ${field}`) ?? false;
}

async function fetchRules() {
  try {
    // Through api.js: its answer also tells the session's idle time.
    const doc = await json('/api/field-rules');
    kinds = new Map();
    for (const req of doc.requests ?? []) {
      for (const f of req.fields ?? []) kinds.set(`${req.code} ${f.field}`, f);
    }
  } catch (e) {
    kinds = null;  // no rules: the server still checks on save
  }
}

// The reason `value` breaks the rule, or ''.
export function check(rule, value) {
  if (!rule || !rule.checked) return '';
  if (rule.required && value === '') return t('field.required');
  const safe = ['code', 'id', 'name', 'reading', 'mail address', 'flag'];
  if (safe.includes(rule.kind)) {
    if (value.includes(',')) return t('field.comma');
    if (CONTROL.test(value)) return t('field.control');
  }
  const length = [...value].length;
  if ((rule.kind === 'name' || rule.kind === 'reading') && length > 100) return t('field.long', 100);
  if (rule.kind === 'mail address' && length > 254) return t('field.long', 254);
  if (rule.kind === 'flag' && length > 1) return t('field.long', 1);
  if (rule.kind === 'password' && CONTROL.test(value)) return t('field.control');
  if (rule.kind === 'phone' && !PHONE.test(value)) return t('field.phone');
  if (rule.kind === 'date' && value !== '' && !DATE.test(value.replaceAll('-', ''))) return t('field.date');
  return '';
}

function ruleOf(input) { return kinds?.get(`${input.dataset.req} ${input.dataset.field}`); }

// Whether every checked field under `form` passes (each failure shown).
export function formPasses(form) {
  let ok = true;
  for (const input of form.querySelectorAll('[data-field][data-req]')) {
    if (input.readOnly || input.disabled) continue;
    const reason = check(ruleOf(input), input.value);
    setFieldError(input, reason);
    if (reason) ok = false;
  }
  return ok;
}

export function watchFields() {
  document.addEventListener('input', (e) => {
    const input = e.target;
    if (!input.matches?.('[data-field][data-req]')) return;
    setFieldError(input, check(ruleOf(input), input.value));
  });
}
