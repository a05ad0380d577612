// The administration pages in a real Chromium against a real `orvane
// serve` on a fresh demo database: one whole flow per screen (login,
// groups, members, users, menu rights). After each step the database rows
// are checked, not only the page. Saves the screenshots of the four main
// screens into docs/screenshots/.
//
//   node tests/web/flow_test.mjs path/to/orvane
import assert from 'node:assert/strict';
import net from 'node:net';
import path from 'node:path';
import { ROOT, openBrowserTest } from './harness.mjs';

const { db, server, page, step, run, treeItem, treeRow: row, shows, selectGroup, confirm, logIn, fillUser,
  pickUsers } = await openBrowserTest('flow_test.mjs');
const shots = path.join(ROOT, 'docs/screenshots');
page.on('dialog', (d) => d.accept());

const message = page.locator('#message');
const error = page.locator('#error');

function rawGet(url, target) {
  const { hostname, port } = new URL(url);
  return new Promise((resolve, reject) => {
    const socket = net.connect(Number(port), hostname, () => {
      socket.end(`GET ${target} HTTP/1.1\r\nHost: ${hostname}\r\nConnection: close\r\n\r\n`);
    });
    let answer = '';
    socket.on('data', (d) => { answer += d; });
    socket.on('end', () => resolve(answer));
    socket.on('error', reject);
  });
}

// A message left from the step before must not pass for this one's.
async function hideMessage() {
  await message.evaluate((m) => { m.hidden = true; });
}

await run(async () => {
  await step('the pages are served with their headers, and nothing outside them', async () => {
    const index = await fetch(`${server.url}/`);
    assert.equal(index.status, 200);
    assert.equal(index.headers.get('content-type'), 'text/html; charset=utf-8');
    assert.equal(index.headers.get('x-content-type-options'), 'nosniff');
    assert.equal(index.headers.get('content-security-policy'), "default-src 'self'; frame-ancestors 'none'");
    const js = await fetch(`${server.url}/js/api.js`);
    assert.equal(js.headers.get('content-type'), 'text/javascript; charset=utf-8');
    // Sent as written: a client would tidy the dots away.
    for (const p of ['/../ORVANE.ini', '/js/../../ORVANE.ini', '/%2e%2e/ORVANE.ini', '/js/%2e%2e/%2e%2e/ORVANE.ini',
      '/..%2fORVANE.ini', '/.hidden', '/js/', '/ORVANE.ini', '/nothing.html']) {
      // Refused (404), or the connection closed unanswered.
      const answer = await rawGet(server.url, p);
      assert.match(answer, /^(HTTP\/1\.1 (400|404) |$)/, p);
      assert.doesNotMatch(answer, /LOCAL_DB_DSN/, p);
    }
  });

  await step('login: a wrong password is refused, the demo administrator gets in', async () => {
    await page.goto(`${server.url}/`);
    await logIn('admin', 'wrong');
    await shows(page.locator('#login-note'), 'ユーザーIDまたはパスワードが違います');
    assert.equal(await page.locator('#login-form').getByLabel('ユーザーID').inputValue(), 'admin');
    await logIn('admin', 'admin');
    await treeItem('本社').waitFor();
    await selectGroup('本社');
  });

  await step('groups: add a group, a refused add keeps what was typed', async () => {
    await selectGroup('総務部');
    await page.locator('#a-name').fill('人事課');
    await page.locator('#a-busho').fill('B00000010');
    await page.getByRole('button', { name: '追加', exact: true }).click();
    await shows(message, 'グループ「人事課」を追加しました');
    await page.locator('#g-name').filter({ hasText: '' }).waitFor();
    assert.equal(db("select SEC_CD,JOI_SEC,SEC_SEQ,SEC_TREE,TREE_NM,BUSHO_CD from T_SECTION where SEC_NM='人事課'"),
      '0006|0002|001|0000/0002/0006|/ 総務部 / 人事課|B00000010');
    await assert.doesNotReject(treeItem('人事課').waitFor());

    // The same department code again: refused, with the reason.
    await selectGroup('総務部');
    await page.locator('#a-name').fill('経理課');
    await page.locator('#a-busho').fill('B00000010');
    await page.getByRole('button', { name: '追加', exact: true }).click();
    await shows(error, 'その部署コードは使えません');
    assert.equal(await page.locator('#a-name').inputValue(), '経理課');
    assert.equal(db("select count(*) from T_SECTION where SEC_NM='経理課'"), '0');
    await page.locator('#error-close').click();
  });

  await step('groups: rename', async () => {
    await selectGroup('人事課');
    await page.locator('#g-name').fill('人事部門');
    await page.getByRole('button', { name: '変更を保存' }).click();
    await shows(message, 'グループを保存しました');
    await treeItem('人事部門').waitFor();
    assert.equal(db("select SEC_NM,TREE_NM from T_SECTION where SEC_CD='0006'"), '人事部門|/ 総務部 / 人事部門');
  });

  await step('groups: drag onto another group, then between two siblings', async () => {
    await row('人事部門').dragTo(row('営業部'));  // the middle: hang it there
    await shows(message, '移動しました');
    assert.equal(db("select JOI_SEC,SEC_SEQ,SEC_TREE,TREE_NM from T_SECTION where SEC_CD='0006'"),
      '0001|003|0000/0001/0006|/ 営業部 / 人事部門');
    await treeItem('人事部門').waitFor();
    await hideMessage();
    // Onto the upper edge of 東日本営業課: first among its siblings.
    const box = await row('東日本営業課').boundingBox();
    await row('人事部門').dragTo(row('東日本営業課'), { targetPosition: { x: box.width / 2, y: 2 } });
    await shows(message, '移動しました');
    assert.equal(db("select SEC_CD||':'||SEC_SEQ from T_SECTION where JOI_SEC='0001' order by SEC_SEQ").split('\n').join(' '),
      '0006:001 0004:002 0005:003');
    const order = await page.locator('#tree [role="treeitem"][aria-level="3"] > .row .name').allTextContents();
    assert.deepEqual(order.slice(0, 3), ['人事部門', '東日本営業課', '西日本営業課']);
  });

  await step('groups: arrow keys walk the tree', async () => {
    await treeItem('人事部門').focus();
    await page.keyboard.press('ArrowUp');
    assert.equal(await page.evaluate(() => document.activeElement.querySelector('.name').textContent), '営業部');
    await page.keyboard.press('ArrowLeft');
    assert.equal(await treeItem('営業部').getAttribute('aria-expanded'), 'false');
    await page.keyboard.press('ArrowRight');
    assert.equal(await treeItem('営業部').getAttribute('aria-expanded'), 'true');
  });

  await step('groups: a group with subgroups is not deleted; a leaf is', async () => {
    await selectGroup('営業部');
    await page.getByRole('button', { name: '削除' }).click();
    await shows(error, 'には子グループがあるため削除できません');
    assert.equal(db("select count(*) from T_SECTION where SEC_CD='0001'"), '1');
    await page.locator('#error-close').click();
    await selectGroup('人事部門');
    await page.screenshot({ path: path.join(shots, 'groups.png') });
    await page.getByRole('button', { name: '削除' }).click();
    await confirm();
    await shows(message, 'グループ「人事部門」を削除しました');
    assert.equal(db("select count(*) from T_SECTION where SEC_CD='0006'"), '0');
  });

  await step('members: add two, make one primary, a refused primary says why, reorder', async () => {
    await selectGroup('西日本営業課');
    await page.getByRole('button', { name: 'メンバーを表示' }).click();
    await shows(page.locator('#members-heading'), 'グループ「西日本営業課」のメンバー');
    await shows(page.locator('#m-rows'), 'ito');
    await page.getByRole('button', { name: 'メンバーを追加…' }).click();
    await pickUsers([['サ', '佐藤 花子'], ['タ', '田中 一郎']]);
    await shows(message, '2 人を追加しました');
    assert.equal(db("select USER_ID||':'||SEC_KBN||':'||USER_SEQ||':'||ED_YMD from T_SECMEMBER where SEC_CD='0005' order by USER_SEQ").split('\n').join(' '),
      'ito:1:001:99999999 sato:0:002:99999999 tanaka:0:003:99999999');

    // tanaka's primary group ended in 2023: this one may be primary.
    await page.getByRole('button', { name: '田中 一郎 の所属を変更' }).click();
    await page.getByLabel('主所属にする').check();
    await page.locator('#md-post').selectOption({ label: '課長' });
    await page.locator('#md-start').fill('2024-04-01');
    await page.locator('#member-dialog').getByRole('button', { name: '保存' }).click();
    await shows(message, '保存しました');
    assert.equal(db("select SEC_KBN,POST_CD,ST_YMD,ED_YMD from T_SECMEMBER where SEC_CD='0005' and USER_ID='tanaka'"),
      '1|02|20240401|99999999');

    // sato is primary in 東日本営業課 with no end: refused, the dialog keeps its values.
    await page.getByRole('button', { name: '佐藤 花子 の所属を変更' }).click();
    await page.getByLabel('主所属にする').check();
    await page.locator('#md-start').fill('2024-05-01');
    await page.locator('#member-dialog').getByRole('button', { name: '保存' }).click();
    await shows(page.locator('#member-dialog .error'), '期間の重なる別の主所属');
    assert.equal(await page.locator('#md-start').inputValue(), '2024-05-01');
    assert.equal(db("select SEC_KBN from T_SECMEMBER where SEC_CD='0005' and USER_ID='sato'"), '0');
    await page.locator('#md-cancel').click();

    // Drag tanaka above ito, then sato up with the keyboard's button.
    await hideMessage();
    await page.locator('#m-rows tr', { hasText: 'tanaka' }).dragTo(page.locator('#m-rows tr', { hasText: 'ito' }),
      { targetPosition: { x: 20, y: 3 } });
    await shows(message, '完了しました');
    assert.equal(db("select USER_ID from T_SECMEMBER where SEC_CD='0005' order by USER_SEQ").split('\n').join(' '),
      'tanaka ito sato');
    await page.getByRole('button', { name: '佐藤 花子 を1つ上へ' }).click();
    await page.locator('#m-rows tr').nth(1).filter({ hasText: 'sato' }).waitFor();
    assert.equal(db("select USER_ID from T_SECMEMBER where SEC_CD='0005' order by USER_SEQ").split('\n').join(' '),
      'tanaka sato ito');
    await page.screenshot({ path: path.join(shots, 'members.png') });
  });

  await step('members: a change by someone else since the list was loaded is refused, reload helps', async () => {
    db("update T_SECMEMBER set UPD_YMD='99991231', UPD_HMS='235959' where SEC_CD='0004' and USER_ID='yamada'");
    await page.getByRole('button', { name: '伊藤 健 をグループから外す' }).click();
    await confirm();
    await shows(error, '他の管理者がメンバーを変更しました');
    assert.equal(db("select count(*) from T_SECMEMBER where SEC_CD='0005' and USER_ID='ito'"), '1');
    db("update T_SECMEMBER set UPD_YMD='20240101', UPD_HMS='000000' where SEC_CD='0004' and USER_ID='yamada'");
    await error.getByRole('button', { name: '再読み込み' }).click();
    await hideMessage();
    await page.getByRole('button', { name: '伊藤 健 をグループから外す' }).click();
    await confirm();
    await shows(message, '完了しました');
    assert.equal(db("select count(*) from T_SECMEMBER where SEC_CD='0005' and USER_ID='ito'"), '0');
  });

  await step('users: kana tabs, create, a refused create keeps the form', async () => {
    const form = page.locator('#user-form');
    await page.locator('#nav').getByRole('button', { name: 'ユーザー' }).click();
    await shows(page.locator('#u-list [role="tab"]').first(), '6');
    await page.locator('#u-list').getByRole('tab', { name: /^ヤ/ }).click();
    // The list of all users holds yamada too: wait for the row's own list.
    await page.waitForFunction(() => document.querySelectorAll('#u-list tbody tr').length === 1, null,
      { timeout: 10000 });
    await shows(page.locator('#u-list tbody'), 'yamada');

    await fillUser({ ユーザーID: 'kimura', パスワード: 'pw-kimura', '氏名(漢字)': '木村 次郎', '氏名(カナ)': 'キムラ ジロウ',
      'メールアドレス / エイリアス': 'kimura', 役職: '係長' });
    await page.getByRole('button', { name: '登録' }).click();
    await shows(message, 'ユーザー「kimura」を登録しました');
    assert.equal(db("select USER_ID,NAME_KJ,NAME_KN,PASSWORD,MAIL,IMAIL_FLG,MAIL_USE_FLG,POST_NM from T_USER where USER_ID='kimura'"),
      'kimura|木村 次郎|キムラ ジロウ|pw-kimura|kimura|0|0|係長');
    assert.equal(db("select count(*) from MENU_USER where USER_ID='kimura'"), '1');
    await page.screenshot({ path: path.join(shots, 'users.png') });

    // An ID that is taken: the server's own message, the form as typed.
    await page.getByRole('button', { name: '新しいユーザー' }).click();
    await fillUser({ ユーザーID: 'yamada', パスワード: 'pw-other', '氏名(漢字)': '別の山田' });  // a new user needs one
    await page.getByRole('button', { name: '登録' }).click();
    await shows(error, '入力された【ユーザーID】は');
    assert.equal(await form.getByLabel('氏名(漢字)').inputValue(), '別の山田');
    assert.equal(db("select NAME_KJ from T_USER where USER_ID='yamada'"), '山田 太郎');
    await page.locator('#error-close').click();
  });

  await step('menu rights: from the user form, saved; a lost session asks for a login and keeps the choice', async () => {
    await page.locator('#u-list').getByRole('tab', { name: /^ヤ/ }).click();
    await page.locator('#u-list').getByRole('button', { name: '山田 太郎' }).click();
    await page.getByRole('button', { name: 'メニュー権限…' }).click();
    await shows(page.locator('#menu-legend'), 'yamada');
    const boxes = page.locator('#menu-boxes');
    assert.equal(await boxes.getByRole('checkbox', { name: '施設予約 02' }).isChecked(), true);
    await boxes.getByRole('checkbox', { name: '掲示板 03' }).check();
    await boxes.getByRole('checkbox', { name: 'メール 21' }).uncheck();
    await page.screenshot({ path: path.join(shots, 'menus.png') });
    // The session ends behind the page's back.
    await page.evaluate(() => fetch('/logout', { method: 'POST' }));
    await page.locator('#menu-form').getByRole('button', { name: '保存' }).click();
    await shows(page.locator('#login-note'), 'セッションが切れました');
    await logIn('admin', 'admin');
    await shows(message, 'メニュー権限を保存しました');
    assert.equal(db("select MENU01,MENU02,MENU03,MENU21 from MENU_USER where USER_ID='yamada'"), '01|02|03|ZZ');
  });

  await step('logout', async () => {
    await page.getByRole('button', { name: 'ログアウト' }).click();
    await page.getByRole('button', { name: 'ログイン' }).waitFor();
    await page.screenshot({ path: path.join(shots, 'login.png') });
  });

});
