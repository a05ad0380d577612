// The transfer screen in Chromium against a real `orvane serve` on the demo
// database: a file uploaded and previewed (counts at the top, errors
// first), a corrected file applied, and the report downloaded.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { openBrowserTest, ROOT } from './harness.mjs';

const { db, server, page, step, run } = await openBrowserTest('transfer_test.mjs');

const csv = (text) => ({ name: 'users.csv', mimeType: 'text/csv', buffer: Buffer.from(text) });

await run(async () => {
  await step('login and open the transfer screen', async () => {
    await page.goto(`${server.url}/#/transfer`);
    const login = page.locator('#login-form');
    await login.getByLabel('ユーザーID').fill('admin');
    await login.getByLabel('パスワード').fill('admin');
    await login.getByRole('button', { name: 'ログイン' }).click();
    await page.locator('#transfer-files').waitFor();
    assert.equal(await page.locator('a[data-file="users.csv"]').getAttribute('href'), '/api/export?file=users.csv');
  });

  await step('preview: counts first, the error before the change, apply refused', async () => {
    await page.locator('#transfer-files').setInputFiles(csv('id,post\nyamada,部長\nnobody,"a,b"\n'));
    await page.getByRole('button', { name: 'プレビュー' }).click();
    await page.locator('#transfer-lines li').first().waitFor();
    assert.equal(await page.locator('#transfer-counts td[data-action="change"]').textContent(), '1');
    assert.equal(await page.locator('#transfer-counts td[data-action="error"]').textContent(), '1');
    assert.deepEqual(await page.locator('#transfer-lines li').allTextContents(), [
      'エラー: users.csv 3行目: nobody (post: must not hold a comma)',
      '変更: users.csv 2行目: yamada (post: 課長 → 部長)',
    ]);
    assert.equal(await page.locator('#transfer-apply').isDisabled(), true);
    await page.screenshot({ path: path.join(ROOT, 'docs/screenshots/transfer.png') });
  });

  await step('apply a corrected file and download its report', async () => {
    await page.locator('#transfer-files').setInputFiles(csv('id,post\nyamada,部長\n'));
    await page.getByRole('button', { name: 'プレビュー' }).click();
    await page.locator('#transfer-summary', { hasText: 'すべての行を適用できます。' }).waitFor();
    await page.getByRole('button', { name: '適用' }).click();
    await page.locator('#transfer-summary', { hasText: '適用しました' }).waitFor();
    assert.equal(await page.locator('#transfer-summary').textContent(), '適用しました: 追加 0 件、変更 1 件、削除 0 件。');
    assert.equal(db("select POST_NM from T_USER where USER_ID = 'yamada'"), '部長');
    const [download] = await Promise.all([page.waitForEvent('download'), page.locator('#transfer-report').click()]);
    const report = fs.readFileSync(await download.path(), 'utf8');
    assert.equal(report, '\uFEFFfile,line,key,action,result,password,mail_before,lists\r\n' +
      'users.csv,2,yamada,change,done,,0/yamada/0,\r\n');
  });
});
