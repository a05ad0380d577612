// What the browser tests and the browser bench share: a demo installation
// in a temporary folder, a real `orvane serve` on a free port, SQL through
// the sqlite3 tool, and Debian's chromium driven by playwright-core.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';

export const ROOT = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
export const CHROMIUM = '/usr/bin/chromium';
const ARGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];

export function tempDir(prefix) { return fs.mkdtempSync(path.join(os.tmpdir(), prefix)); }

// The demo installation that scripts/demo writes, with the demo data.
export function demoInstallation(binary) {
  const dir = tempDir('orvane-web-');
  // unixODBC caches a data source by name for a while: a name per run.
  const dsn = `orvane_web_${process.pid}_${Date.now()}`;
  execFileSync('bash', ['-c', 'source "$1"; write_demo_installation "$2" "$3"', 'demo',
    path.join(ROOT, 'scripts/lib/demo_install.sh'), dir, dsn]);
  // Plain passwords: the flow reads back the password a user was registered with.
  execFileSync(binary, ['init-db', '--config', path.join(dir, 'ORVANE.ini'), '--demo', '--plain-passwords'], { stdio: 'pipe' });
  return { dir, config: path.join(dir, 'ORVANE.ini'), db: path.join(dir, 'orvane.db') };
}

export function freePort() {
  return new Promise((resolve, reject) => {
    const s = net.createServer();
    s.on('error', reject);
    s.listen(0, '127.0.0.1', () => {
      const { port } = s.address();
      s.close(() => resolve(port));
    });
  });
}

// `orvane serve` until stop(); its log is kept for a failure report.
export async function startServer(binary, config, extra = []) {
  const port = await freePort();
  const child = spawn(binary, ['serve', '--config', config, '--listen', `127.0.0.1:${port}`, ...extra],
    { stdio: ['ignore', 'ignore', 'pipe'] });
  let log = '';
  child.stderr.on('data', (d) => { log += d; if (log.length > 200000) log = log.slice(-100000); });
  const url = `http://127.0.0.1:${port}`;
  for (let i = 0; ; i++) {
    try {
      const r = await fetch(`${url}/healthz`);
      if (r.ok) break;
    } catch (e) {
      if (i > 300 || child.exitCode !== null) throw new Error(`orvane serve did not start:\n${log}`);
      await new Promise((r) => setTimeout(r, 100));
    }
  }
  return {
    url,
    log: () => log,
    stop: () => new Promise((resolve) => {
      if (child.exitCode !== null) return resolve();
      child.once('exit', resolve);
      child.kill('SIGTERM');
    }),
  };
}

// Rows of a query, columns joined by "|".
export function sql(db, query) {
  return execFileSync('sqlite3', ['-separator', '|', db, query]).toString().trim();
}

// A fresh profile each time; the browser is never downloaded.
export async function launchBrowser() {
  if (!fs.existsSync(CHROMIUM)) return null;
  const profile = tempDir('orvane-chromium-');
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM, headless: true, args: ARGS, viewport: { width: 1280, height: 800 },
    locale: 'ja-JP',
  });
  return {
    context,
    close: async () => {
      await context.close();
      fs.rmSync(profile, { recursive: true, force: true });
    },
  };
}

// One browser test: the binary named on its command line, a fresh demo
// installation, a server on it and a page in Chromium (exit 77, skipped,
// where no browser is installed). `step` runs one named part and ends the
// test at its first failure, keeping a screenshot; `run` runs the steps,
// checks that the page threw nothing, cleans up and exits with the result.
// `serveArgs`: more options of `orvane serve`.
export async function openBrowserTest(script, { serveArgs = [] } = {}) {
  const binary = process.argv[2];
  if (!binary) {
    console.error(`usage: node ${script} ORVANE_BINARY`);
    process.exit(2);
  }
  const install = demoInstallation(binary);
  const server = await startServer(binary, install.config, serveArgs);
  const browser = await launchBrowser();
  if (!browser) {
    console.log('SKIPPED: /usr/bin/chromium is missing (scripts/test installs it)');
    await server.stop();
    process.exit(77);
  }
  const page = await browser.context.newPage();
  page.setDefaultTimeout(15000);
  const pageErrors = [];
  page.on('pageerror', (e) => pageErrors.push(String(e)));
  let failed = false;
  async function step(name, fn) {
    const started = Date.now();
    try {
      await fn();
      console.log(`ok   ${name} (${Date.now() - started} ms)`);
    } catch (e) {
      failed = true;
      console.log(`FAIL ${name}\n${e.stack}`);
      await page.screenshot({ path: path.join(install.dir, 'failure.png') }).catch(() => {});
      throw e;
    }
  }
  async function run(steps) {
    try {
      await steps();
      assert.deepEqual(pageErrors, []);
    } catch (e) {
      failed = true;
      if (!String(e.stack).includes('FAIL')) console.log(`${e.stack}\nserver log (end):\n${server.log().slice(-3000)}`);
    } finally {
      await browser.close();
      await server.stop();
      if (!failed) fs.rmSync(install.dir, { recursive: true, force: true });
      else console.log(`kept for a look: ${install.dir}`);
    }
    process.exit(failed ? 1 : 0);
  }
  return { binary, install, db: (q) => sql(install.db, q), server, browser, page, step, run, ...pageActions(page) };
}

// What the steps of every screen do alike: find a group in the tree, wait
// for a text or a field's value, log in, answer the confirmation, fill the
// user form, pick users in the member picker.
function pageActions(page) {
  const treeItem = (name) => page.locator('#tree [role="treeitem"]',
    { has: page.locator(':scope > .row .name', { hasText: new RegExp(`^${name}$`) }) });
  const shows = (locator, text) => locator.filter({ hasText: text }).first().waitFor();
  const value = (id, text) => page.waitForFunction(([i, v]) => document.getElementById(i)?.value === v,
    [id, text], { timeout: 10000 });
  return {
    treeItem,
    treeRow: (name) => treeItem(name).locator(':scope > .row'),
    shows,
    value,
    selectGroup: async (name) => { await treeItem(name).locator(':scope > .row').click(); await value('g-name', name); },
    confirm: () => page.locator('#confirm').getByRole('button', { name: 'OK' }).click(),
    async logIn(user, password) {
      const login = page.locator('#login-form');
      await login.getByLabel('ユーザーID').fill(user);
      await login.getByLabel('パスワード').fill(password);
      await login.getByRole('button', { name: 'ログイン' }).click();
    },
    // Labels of the user form and their values; a true value checks the box.
    async fillUser(fields) {
      const form = page.locator('#user-form');
      for (const [label, v] of Object.entries(fields)) {
        // Other labels hold a help text or are the start of a longer one.
        const field = form.getByLabel(label, { exact: ['ユーザーID', '役職'].includes(label) });
        await (v === true ? field.check() : field.fill(v));
      }
    },
    // Each user's kana tab, then the user; the picker adds them.
    async pickUsers(users) {
      const pick = page.locator('#pick-dialog');
      for (const [tab, name] of users) {
        await pick.getByRole('tab', { name: new RegExp(`^${tab}`) }).click();
        await pick.getByLabel(`${name} を選ぶ`).check();
      }
      await pick.getByRole('button', { name: '選んだユーザーを追加' }).click();
    },
  };
}
