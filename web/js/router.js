// Every screen and selection has its own address in the hash:
// #/groups?g=CODE, #/members?g=CODE, #/users?row=R&page=N&u=ID,
// #/menus?u=ID, #/history?user=ID&about=ID&group=CODE&code=NNN&since=D&until=D,
// #/transfer. The screens report where they are (pushState, so the report
// itself does not route again); Back, Forward, F5 and a link opened in a new
// tab route from the address.

const SCREENS = ['groups', 'members', 'users', 'menus', 'history', 'transfer'];

export function parse(hash = location.hash) {
  const m = /^#\/([a-z]+)(?:\?(.*))?$/.exec(hash);
  if (!m || !SCREENS.includes(m[1])) return null;
  return { screen: m[1], params: Object.fromEntries(new URLSearchParams(m[2] ?? '')) };
}

export function format(screen, params = {}) {
  const q = new URLSearchParams();
  for (const [k, v] of Object.entries(params)) if (v !== undefined && v !== null && v !== '') q.set(k, String(v));
  const s = q.toString();
  return `#/${screen}${s ? `?${s}` : ''}`;
}

// Records the screen's place as a new history entry (or in place of the
// current one, for a place that only fills in what the address left out).
export function report(screen, params, replace = false) {
  const hash = format(screen, params);
  if (location.hash === hash) return;
  if (replace) history.replaceState(null, '', hash);
  else history.pushState(null, '', hash);
}
