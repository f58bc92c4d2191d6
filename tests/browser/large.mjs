// The workbench on a large factory, timed in headless Chromium: from
// pressing "run" to the first page of the review painted, a sort and a
// filter of the whole report, and the service's resident memory over
// several runs. A measurement, not a test: it prints its figures.
//
//   node large.mjs MRPCALC_BINARY SQLITE_FILE [RUNS]
//
// The file is a copy of a bench database (`mrpcalc bench generate`); a
// user 1 is added to it for the token.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import puppeteer from 'puppeteer-core';
import { startService } from './service.mjs';

const [binary, file, runsArg] = process.argv.slice(2);
const runs = Number(runsArg || 3);
const dsn = `sqlite:${file}`;
execFileSync('sqlite3', [file, "insert into t_User (FUserID, FName) select 1, 'bench' where not exists (select 1 from t_User where FUserID = 1)"]);
const { token, server, port } = await startService(binary, dsn, 1);
// The service runs in mrpcalc-web, the serve process's child.
const rssMb = () => {
  const pid = execFileSync('pgrep', ['-f', `mrpcalc-web serve ${dsn}`]).toString().trim().split('\n')[0];
  const status = readFileSync(`/proc/${pid}/status`, 'utf8');
  return Number(status.match(/VmRSS:\s+(\d+)/)[1]) / 1024;
};
const peakMb = () => {
  const pid = execFileSync('pgrep', ['-f', `mrpcalc-web serve ${dsn}`]).toString().trim().split('\n')[0];
  return Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmHWM:\s+(\d+)/)[1]) / 1024;
};

const browser = await puppeteer.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium', headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
});
try {
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
  for (let run = 1; run <= runs; ++run) {
    await page.click('nav a[data-step="run"]');
    await page.evaluate(() => { document.querySelector('#report').innerHTML = ''; });
    const t0 = Date.now();
    await page.click('#run-mrp');
    await page.waitForSelector('#report tbody tr', { timeout: 120000 });
    await page.evaluate(() => new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r))));
    const painted = Date.now() - t0;
    const rows = await page.$eval('#report-count', (el) => el.textContent);
    const sort = await page.evaluate(() => {
      const t = performance.now();
      document.querySelector('#report th[data-key="FNeedQty"]').click();
      return performance.now() - t;
    });
    const filter = await page.evaluate(() => {
      const t = performance.now();
      const box = document.querySelector('#report-filter');
      box.value = '1.';
      box.dispatchEvent(new Event('input'));
      const took = performance.now() - t;
      box.value = '';
      box.dispatchEvent(new Event('input'));
      return took;
    });
    console.log(`run ${run}: ${picked}; ${rows}; run to first page painted ${(painted / 1000).toFixed(2)} s; ` +
      `sort ${sort.toFixed(0)} ms; filter ${filter.toFixed(0)} ms; service RSS ${rssMb().toFixed(0)} MB, peak ${peakMb().toFixed(0)} MB`);
  }
} finally {
  await browser.close();
  server.kill();
}
