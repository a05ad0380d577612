// What a move of a group carries (its subgroups and their members) and the
// question asked before it; undo puts a moved group back.
import * as api from './api.js';
import { t } from './texts.js';
import { confirmDialog } from './ui.js';

const COUNT_LIMIT = 100;  // members are counted for subtrees up to this size

// Group `i` and every group below it.
export function subtree(model, i) {
  const out = [i];
  for (let k = 0; k < out.length; k++) out.push(...model.children[out[k]]);
  return out;
}

// Resolves true when the move may go ahead: a lone group without current
// members moves at once (undo is offered after it), anything more is
// counted and asked.
export async function askMove(model, moved, parent) {
  const groups = subtree(model, moved);
  let members = null;
  if (groups.length <= COUNT_LIMIT) {
    const answers = await Promise.all(groups.map((i) => api.request('104', {
      Group_cd: model.code[i], S_Col: '', S_Type: '', S_OPT: '1',
    })));
    members = answers.reduce((n, a) => n + api.rows(a, 7).length, 0);
  }
  if (groups.length === 1 && members === 0) return true;
  const text = members === null
    ? t('groups.confirmMoveMany', model.name[moved], model.name[parent], groups.length.toLocaleString())
    : t('groups.confirmMove', model.name[moved], model.name[parent], groups.length.toLocaleString(), members.toLocaleString());
  return confirmDialog(text);
}

// Where group `i` stands now, by codes (indexes change when the tree is
// read again): its parent and the sibling after it ('' for the last).
export function placeOf(model, i) {
  const siblings = model.siblings(i);
  const k = siblings.indexOf(i);
  return {
    code: model.code[i],
    parent: model.parent[i] < 0 ? '' : model.code[model.parent[i]],
    before: k + 1 < siblings.length ? model.code[siblings[k + 1]] : '',
  };
}
