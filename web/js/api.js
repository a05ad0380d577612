// The server's own protocol: GET/POST /orvane with a request code, POST
// /login and /logout, and the drawn tree. Changing requests (2xx codes) go
// as POST with a form body; reads as GET. A 401 means the session is gone:
// the page asks for a login and then sends the same request again, so
// nothing typed is lost.

export class ServerError extends Error {
  constructor(answer) {
    super(answer);
    this.answer = answer;
  }
}

let sessionLost = async () => { throw new ServerError('ERROR:SESSIONCHECK'); };
let busyListener = () => {};
let answerListener = () => {};
let inFlight = 0;

// `handler` returns a promise that settles once the user logged in again.
export function onSessionLost(handler) { sessionLost = handler; }
// Called with the headers of every answer that kept the session alive.
export function onAnswer(listener) { answerListener = listener; }
// Called with true while any request is under way.
export function onBusy(listener) { busyListener = listener; }

function busy(delta) {
  inFlight += delta;
  busyListener(inFlight > 0);
}

async function send(url, init) {
  busy(1);
  try {
    let res;
    try {
      res = await fetch(url, { credentials: 'same-origin', cache: 'no-store', ...init });
    } catch (e) {
      throw new ServerError('ERROR:NETWORK');
    }
    const text = await res.text();
    if (res.status === 200 && !text.startsWith('ERROR:SESSIONCHECK')) answerListener(res.headers);
    return { status: res.status, text };
  } finally {
    busy(-1);
  }
}

function form(fields) {
  const body = new URLSearchParams();
  for (const [k, v] of Object.entries(fields)) body.append(k, v ?? '');
  return body;
}

// One request code; resolves with the answer text, rejects with a
// ServerError for an "ERROR:" answer.
export async function request(code, fields = {}) {
  const changes = code.startsWith('2');
  for (let attempt = 0; ; attempt++) {
    const all = { ReqNo: code, ...fields };
    const r = changes
      ? await send('/orvane', { method: 'POST', body: form(all) })
      : await send('/orvane?' + form(all).toString(), { method: 'GET' });
    // No session (401 at the edge, or the request's own check): log in and
    // send it again.
    if ((r.status === 401 || r.text.startsWith('ERROR:SESSIONCHECK')) && attempt === 0) {
      await sessionLost();
      continue;
    }
    if (r.text.startsWith('ERROR:')) throw new ServerError(r.text);
    if (r.status !== 200) throw new ServerError(`ERROR:HTTP${r.status}`);
    return r.text;
  }
}

// Whether the browser holds a live administrator session, asked without
// calling for a login (a page opened from its address, or F5).
export async function hasSession() {
  const r = await send('/orvane?ReqNo=109', { method: 'GET' });
  return r.status === 200 && !r.text.startsWith('ERROR:');
}

export async function login(user, password) {
  const r = await send('/login', { method: 'POST', body: form({ User_cd: user, User_PS: password }) });
  return r.text === 'OK';
}

export async function logout() {
  await send('/logout', { method: 'POST', body: form({}) });
}

// The drawn section tree: rows (CR LF) of twelve TAB-separated columns.
export async function drawnTree() {
  for (let attempt = 0; ; attempt++) {
    const r = await send('/application/App_A_strSec_hierarchical', { method: 'GET' });
    if (r.status === 401 && attempt === 0) {
      await sessionLost();
      continue;
    }
    if (r.text.startsWith('ERROR:')) throw new ServerError(r.text);
    if (r.status !== 200) throw new ServerError(`ERROR:HTTP${r.status}`);
    return r.text;
  }
}

// A row's update stamp (GET /api/stamp?group=CODE or ?user=ID), or '' on a
// server without the endpoint.
export async function stamp(which) {
  const r = await send(`/api/stamp?${new URLSearchParams(which)}`, { method: 'GET' }).catch(() => null);
  if (!r || r.status !== 200) return '';
  try {
    return String(JSON.parse(r.text).stamp ?? '');
  } catch (e) {
    return '';
  }
}

// One of the pages' JSON endpoints (/api/...): GET `path`, or POST `fields`
// as a form. Resolves with the parsed answer; rejects with a ServerError
// of the answer's "error" code (ERROR:HTTP404 where the server lacks it).
// A lost session asks for a login and sends it again, as request() does.
export async function json(path, fields = null) {
  for (let attempt = 0; ; attempt++) {
    const r = fields ? await send(path, { method: 'POST', body: form(fields) }) : await send(path, { method: 'GET' });
    if (r.status === 401 && attempt === 0) {
      await sessionLost();
      continue;
    }
    let body = null;
    try { body = JSON.parse(r.text); } catch (e) { /* not JSON: said by the status */ }
    if (r.status !== 200 || body === null) {
      const err = new ServerError(body?.error ?? `ERROR:HTTP${r.status}`);
      err.body = body;  // a refusal may say more than its code
      throw err;
    }
    return body;
  }
}

// A flat comma list cut into rows of `width` values.
export function rows(answer, width) {
  if (answer === '') return [];
  const v = answer.split(',');
  const out = [];
  for (let i = 0; i + width <= v.length; i += width) out.push(v.slice(i, i + width));
  return out;
}

// The moment as the server stamps rows: yyyymmdd and hhmmss.
export function moment(date = new Date()) {
  const p = (n, w) => String(n).padStart(w, '0');
  return {
    ymd: p(date.getFullYear(), 4) + p(date.getMonth() + 1, 2) + p(date.getDate(), 2),
    hms: p(date.getHours(), 2) + p(date.getMinutes(), 2) + p(date.getSeconds(), 2),
  };
}

export function ymdToInput(ymd) {
  return /^\d{8}$/.test(ymd) && ymd !== '99999999' ? `${ymd.slice(0, 4)}-${ymd.slice(4, 6)}-${ymd.slice(6)}` : '';
}

export function inputToYmd(value) { return value.replaceAll('-', ''); }

export function showYmd(ymd) {
  if (ymd === '99999999') return '—';
  return /^\d{8}$/.test(ymd) ? `${ymd.slice(0, 4)}/${ymd.slice(4, 6)}/${ymd.slice(6)}` : ymd;
}
