// The "history" section of the group and user screens: the few newest
// entries about the group or user shown, with Undo, and a link to the
// history screen filtered on it. Hidden on a server that keeps no history.
import { t } from './texts.js';
import { el } from './ui.js';
import { format } from './router.js';
import { fetchEntries, historyAvailable, renderEntry } from './history_list.js';
import { undoEntry } from './history.js';

const SHOWN = 5;
const filled = new Map();  // section -> what it shows, for a new language

export function retranslateHistorySections() {
  for (const [card, { filters, onUndone }] of filled) if (!card.hidden) fillHistorySection(card, filters, onUndone);
}

// Fills `card` (a section element) for `filters` ({group} or {user});
// `onUndone()` after an undo from it.
export async function fillHistorySection(card, filters, onUndone = () => {}) {
  filled.set(card, { filters, onUndone });
  const token = card.dataset.token = String(Number(card.dataset.token ?? 0) + 1);
  if (!await historyAvailable()) {
    card.hidden = true;
    return;
  }
  const page = await fetchEntries(filters, null, SHOWN).catch(() => null);
  if (card.dataset.token !== token) return;  // another group or user was shown meanwhile
  card.hidden = page === null;
  if (page === null) return;
  const undo = async (entry) => {
    if (!await undoEntry(entry)) return;
    await onUndone();
    await fillHistorySection(card, filters, onUndone);
  };
  card.replaceChildren(
    el('h4', {}, t('history.section')),
    el('ul', { class: 'history-list' }, ...(page.entries.length ? page.entries.map((e) => renderEntry(e, undo))
      : [el('li', { class: 'help' }, t('history.none'))])),
    el('a', { href: format('history', filters) }, t('history.sectionAll')));
}
