// The workbench on a large factory, timed in headless Chromium: from
// pressing "run" to the first page of the review painted, a sort and a
// filter of the whole report, and the service's resident memory over
// several runs. A measurement, not a test: it prints its figures.
//
//   node large.mjs MRPCALC_BINARY SQLITE_FILE [RUNS]
//
// The file is a copy of a bench database (`mrpcalc bench generate`); a
// user 1 is added to it for the token.
import { openLargeFactory } from './service.mjs';

const [binary, file, runsArg] = process.argv.slice(2);
const runs = Number(runsArg || 3);
const { page, picked, memoryMb, close } = await openLargeFactory(binary, file);
try {
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
      `sort ${sort.toFixed(0)} ms; filter ${filter.toFixed(0)} ms; service RSS ${memoryMb('VmRSS').toFixed(0)} MB, peak ${memoryMb('VmHWM').toFixed(0)} MB`);
  }
} finally {
  await close();
}
