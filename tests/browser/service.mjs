// The service of a database on a free port, for the browser runs.
import { spawn, execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import puppeteer from 'puppeteer-core';

// A token for the user, and `mrpcalc serve` started; resolves once it listens.
export async function startService(binary, dsn, user, timeoutMs = 20000) {
  const token = execFileSync(binary, ['token', 'create', '--dsn', dsn, '--user', String(user)],
    { stdio: ['ignore', 'pipe', 'ignore'] }).toString().trim();
  const server = spawn(binary, ['serve', '--dsn', dsn, '--port', '0'], { stdio: ['ignore', 'ignore', 'pipe'] });
  const port = await new Promise((resolve, reject) => {
    let seen = '';
    server.stderr.on('data', (chunk) => {
      seen += chunk;
      const m = seen.match(/http:\/\/127\.0\.0\.1:(\d+)\//);
      if (m) resolve(Number(m[1]));
    });
    server.on('exit', () => reject(new Error('the server ended: ' + seen)));
    setTimeout(() => reject(new Error('the server did not start: ' + seen)), timeoutMs);
  });
  return { token, server, port };
}

// The large-factory measurements: a bench database with a user 1 for the
// token, its service, and a page signed in with every open line picked.
export async function openLargeFactory(binary, file) {
  const dsn = `sqlite:${file}`;
  execFileSync('sqlite3', [file, "insert into t_User (FUserID, FName) select 1, 'bench' where not exists (select 1 from t_User where FUserID = 1)"]);
  const { token, server, port } = await startService(binary, dsn, 1);
  const browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium', headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
  });
  const page = await browser.newPage();
  await page.setViewport({ width: 1400, height: 900 });
  await page.goto(`http://127.0.0.1:${port}/`);
  await page.type('#token', token);
  await page.click('#signin-go');
  await page.waitForFunction(() => document.querySelector('#who').textContent.length > 0);
  await page.click('nav a[data-step="pick"]');
  await page.waitForSelector('#demand input.pick', { timeout: 60000 });
  await page.click('#pick-all');
  const picked = await page.$eval('#demand-count', (el) => el.textContent);
  // The service runs in mrpcalc-web, the serve process's child: its
  // resident memory now ('VmRSS') and at its peak ('VmHWM'), in MB.
  const memoryMb = (field) => {
    const pid = execFileSync('pgrep', ['-f', `mrpcalc-web serve ${dsn}`]).toString().trim().split('\n')[0];
    const status = readFileSync(`/proc/${pid}/status`, 'utf8');
    return Number(status.match(new RegExp(`${field}:\\s+(\\d+)`))[1]) / 1024;
  };
  const close = async () => {
    await browser.close();
    server.kill();
  };
  return { page, picked, memoryMb, close };
}
