// web_bench: the administration pages in Debian's chromium on the large
// generated organisation (20,000 sections, 100,000 users) that read_bench
// leaves in /tmp/orvane-bench: the time to show the group tree after
// logging in, to expand a group, and to page the user list.
//
//   build/release/bench/read_bench            # once: generates large.db
//   (cd tests/web && npm ci)                  # playwright-core, pinned
//   node bench/web_bench.mjs [ORVANE_BINARY] [BENCH_DIR]
//
// Gives u000000 (password u000000) every menu right, administrator
// included, so that it can log in to the pages.
import fs from 'node:fs';
import path from 'node:path';
import { ROOT, launchBrowser, sql, startServer } from '../tests/web/harness.mjs';

const binary = process.argv[2] || path.join(ROOT, 'build/release/orvane');
const dir = process.argv[3] || '/tmp/orvane-bench';
const dbFile = path.join(dir, 'large.db');
if (!fs.existsSync(dbFile)) {
  console.error(`web_bench: no ${dbFile}: run build/release/bench/read_bench first`);
  process.exit(2);
}
const codes = '01,02,03,04,05,06,07,21,22,23,24,25,26,27,50,51,70,71,72,73,74,75,76,77,78,79'.split(',');
sql(dbFile, `delete from MENU_USER where USER_ID='u000000'; insert into MENU_USER (USER_ID,${codes.map((c) => `MENU${c}`).join(',')},UPD_KBN,UPD_YMD,UPD_HMS,UPD_USR) values ('u000000',${codes.map((c) => `'${c}'`).join(',')},'3','20240101','000000','bench')`);
const sections = sql(dbFile, 'select count(*) from T_SECTION');
const users = sql(dbFile, 'select count(*) from T_USER');

const median = (a) => [...a].sort((x, y) => x - y)[Math.floor(a.length / 2)];
const server = await startServer(binary, path.join(dir, 'large.ini'));
const browser = await launchBrowser();
const page = await browser.context.newPage();
page.setDefaultTimeout(180000);
// WEB_BENCH_IDENTITY=1: ask for answers without compression (the packaged
// cpp-httplib compresses text answers with brotli at its highest quality,
// which takes about a minute for the 2.5 MB drawn tree).
if (process.env.WEB_BENCH_IDENTITY === '1') {
  await page.route('**/*', (route) => route.continue({ headers: { ...route.request().headers(), 'accept-encoding': 'identity' } }));
}
const results = [];
const note = (what, ms, extra = '') => {
  results.push([what, ms, extra]);
  console.error(`${what}: ${typeof ms === 'number' ? ms.toFixed(0) : ms} ms ${extra}`);
};

try {
  const drawn = await (await fetch(`${server.url}/application/App_A_strSec_hierarchical`)).text();
  // Opening: login pressed -> the tree on the screen, five times.
  const open = [];
  const inPage = [];
  const runs = Number(process.env.WEB_BENCH_RUNS || 5);
  for (let run = 0; run < runs; run++) {
    await page.goto(`${server.url}/`);
    await page.fill('#login-user', 'u000000');
    await page.fill('#login-password', 'u000000');
    const t0 = Date.now();
    await page.click('#login-form button[type=submit]');
    await page.waitForFunction(() => document.body.dataset.treeMs && document.querySelector('#tree [aria-selected="true"]'));
    open.push(Date.now() - t0);
    inPage.push(Number(await page.evaluate(() => document.body.dataset.treeMs)));
  }
  note('login to tree shown', median(open), `(median of ${runs}; max ${Math.max(...open)})`);
  note('tree fetched, parsed, drawn (in the page)', median(inPage), `(${(drawn.length / 1e6).toFixed(2)} MB drawn tree)`);

  // Expanding: 40 groups down one path and across, each timed to the next frame.
  const expand = await page.evaluate(async () => {
    const times = [];
    const frame = () => new Promise((r) => requestAnimationFrame(() => setTimeout(r, 0)));
    for (let k = 0; k < 40; k++) {
      const closed = [...document.querySelectorAll('#tree li[aria-expanded="false"]')];
      const li = closed[Math.floor(closed.length / 2)];
      if (!li) break;
      const t0 = performance.now();
      li.querySelector('.twisty').click();
      await frame();
      times.push(performance.now() - t0);
    }
    return { times, items: document.querySelectorAll('#tree li').length };
  });
  note('expand a group (to the next frame)', median(expand.times), `(median of ${expand.times.length}; max ${Math.max(...expand.times).toFixed(0)}; ${expand.items} items in the page after)`);

  // The user list: open, page on, jump far, a kana row.
  await page.click('#nav button[data-screen=users]');
  let t0 = Date.now();
  await page.waitForFunction(() => document.querySelector('#u-list .help')?.textContent.includes('1–50'));
  note('users screen: counts of 11 tabs + first page', Date.now() - t0);
  const timedPage = async (what, action, expect) => {
    const t = Date.now();
    await action();
    await page.waitForFunction((e) => document.querySelector('#u-list .help')?.textContent.startsWith(e), expect);
    note(what, Date.now() - t);
  };
  await timedPage('next page (51-100)', () => page.click('#u-list .pager button:nth-child(3)'), '51–100');
  await timedPage('jump to page 300 (14,951-15,000)', async () => {
    await page.fill('#u-list input.page', '300');
    await page.press('#u-list input.page', 'Enter');
  }, '14,951–15,000');
  await timedPage('last reachable page (32,701-32,750)', async () => {
    await page.fill('#u-list input.page', '655');
    await page.press('#u-list input.page', 'Enter');
  }, '32,701–32,750');
  await timedPage('sort by user ID, descending', async () => {
    await page.click('#u-list th:nth-child(2) button');
    await page.click('#u-list th:nth-child(2) button');
  }, '1–50');
  await timedPage('kana row カ, first page', () => page.click('#u-list [role=tab][data-row="1"]'), '1–50');
  const rowsInPage = await page.locator('#u-list tbody tr').count();
  note('user rows in the page', rowsInPage);
} finally {
  await browser.close();
  await server.stop();
}
console.log(`${sections} sections, ${users} users\n\n| figure | ms | |\n|---|---:|---|`);
for (const [what, ms, extra] of results) console.log(`| ${what} | ${typeof ms === 'number' ? ms.toFixed(0) : ms} | ${extra} |`);
