// The time-phased page on a large factory, timed in headless Chromium:
// from pressing "run" to the first page of items painted, then an item's
// weekly record (and its orders) from the click to the table painted, and
// the service's memory. A measurement, not a test: it prints its figures.
//
//   node phased_large.mjs MRPCALC_BINARY SQLITE_FILE [RUNS] [TODAY]
//
// The file is a copy of a bench database with planning parameters set
// (docs/benchmark.md shows how); a user 1 is added to it for the token.
import { openLargeFactory } from './service.mjs';

const [binary, file, runsArg, todayArg] = process.argv.slice(2);
const runs = Number(runsArg || 3);
const today = todayArg || '2026-11-24';
const painted = (page) => page.evaluate(() => new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r))));
const { page, picked, memoryMb, close } = await openLargeFactory(binary, file);
try {
  await page.click('nav a[data-step="phased"]');
  await page.$eval('#ph-today', (el, d) => { el.value = d; }, today);
  for (let run = 1; run <= runs; ++run) {
    await page.evaluate(() => { document.querySelector('#ph-items').innerHTML = ''; });
    const t0 = Date.now();
    await page.click('#ph-run');
    await page.waitForSelector('#ph-items tbody tr', { timeout: 120000 });
    await painted(page);
    const ran = Date.now() - t0;
    const items = await page.$eval('#ph-count', (el) => el.textContent);
    const message = await page.$eval('#phased-msg', (el) => el.textContent);
    // Items, one after another, each from the click to its weeks painted.
    const record = [];
    for (let k = 1; k <= 5; ++k) {
      await page.evaluate(() => { document.querySelector('#ph-buckets').innerHTML = ''; });
      const id = await page.$eval(`#ph-items tbody tr:nth-child(${k})`, (r) => r.dataset.i);
      // Timed in the page: from the click to the frame that shows the weeks.
      record.push(await page.evaluate((n) => new Promise((done) => {
        const t1 = performance.now();
        document.querySelector(`#ph-items tbody tr:nth-child(${n}) td`).click();
        const look = () => {
          if (document.querySelector('#ph-buckets tbody tr')) {
            requestAnimationFrame(() => done(Math.round(performance.now() - t1)));
          } else {
            requestAnimationFrame(look);
          }
        };
        look();
      }), k));
      // The list is painted again with the item marked before the next click.
      await page.waitForFunction((i) => document.querySelector('#ph-items tr.chosen')?.dataset.i === i, {}, id);
    }
    record.sort((a, b) => a - b);
    console.log(`run ${run}: ${picked}; ${items}; ${message}; run to first page painted ${(ran / 1000).toFixed(2)} s; ` +
      `an item's weeks painted: median ${record[2]} ms (${record[0]}-${record[4]}); ` +
      `service RSS ${memoryMb('VmRSS').toFixed(0)} MB, peak ${memoryMb('VmHWM').toFixed(0)} MB`);
  }
} finally {
  await close();
}
