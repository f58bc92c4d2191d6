// The planner's whole flow in headless Chromium, on a fresh demo database:
// sign in, pick demand, run MRP, pegging, confirm, order, plan save, push.
// Orders and pushes are double-clicked: one set of orders each, one question.
// Each step leaves a screenshot in the output folder; the test asserts
// what the page shows.
//
//   node flow.mjs MRPCALC_BINARY OUTPUT_FOLDER
import { execFileSync } from 'node:child_process';
import { mkdirSync, rmSync } from 'node:fs';
import path from 'node:path';
import puppeteer from 'puppeteer-core';
import { startService } from './service.mjs';

const [binary, outDir] = process.argv.slice(2);
if (!binary || !outDir) {
  console.error('usage: node flow.mjs MRPCALC_BINARY OUTPUT_FOLDER');
  process.exit(2);
}
rmSync(outDir, { recursive: true, force: true });
mkdirSync(outDir, { recursive: true });
const db = path.join(outDir, 'demo.db');
const dsn = `sqlite:${db}`;
execFileSync(binary, ['init', '--dsn', dsn, '--demo']);
const { token, server, port } = await startService(binary, dsn, 16);

const failures = [];
function expect(what, ok, detail = '') {
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}${detail ? ': ' + detail : ''}`);
  if (!ok) failures.push(what);
}

const browser = await puppeteer.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
  headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
});
let step = 0;
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1400, height: 900 });
  page.on('pageerror', (e) => expect('no script error', false, e.message));
  // Writes that buy or destroy ask first: the questions are kept, and accepted.
  const questions = [];
  page.on('dialog', async (d) => { questions.push(d.message()); await d.accept(); });
  // Counts through the service, with the planner's token.
  const countOrders = () => page.evaluate(async (tok) => {
    const r = await fetch('/api/call/ZUVMMrpCalculate.MrpDataServer/getPOOrderBills', {
      method: 'POST', headers: { Authorization: 'Bearer ' + tok, 'Content-Type': 'application/json' }, body: '{"args": []}',
    });
    const lines = (await r.json()).result || [];
    return new Set(lines.map((l) => l.FInterID)).size;
  }, token);
  const shot = async (name) => page.screenshot({ path: path.join(outDir, `${String(++step).padStart(2, '0')}-${name}.png`), fullPage: true });
  const text = (selector) => page.$eval(selector, (el) => el.textContent);
  const waitText = (selector, needle) => page.waitForFunction(
    (s, n) => document.querySelector(s) && document.querySelector(s).textContent.includes(n), { timeout: 15000 }, selector, needle);

  // 1. A step asked for before signing in leads to the sign-in.
  await page.goto(`http://127.0.0.1:${port}/#run`);
  await waitText('#signin-msg', '请先登录');
  expect('no step before signing in', await page.$eval('#run', (el) => el.hidden));
  // Sign in: a wrong token is refused next to the field, the right one works.
  await page.type('#token', 'mrp_wrong');
  await page.click('#signin-go');
  await waitText('#signin-msg', '令牌无效');
  expect('a wrong token is refused', (await page.$eval('#signin-msg', (el) => el.className)).includes('error'));
  await page.$eval('#token', (el) => { el.value = ''; });
  await page.type('#token', token);
  await page.click('#signin-go');
  await waitText('#who', 'planner');
  await shot('signed-in');
  expect('signed in as the planner', (await text('#who')).includes('(16)'));
  expect('signed in, the step first asked for', !(await page.$eval('#run', (el) => el.hidden)));

  // 2. Pick every open line; stock of the warehouses.
  await page.click('nav a[data-step="pick"]');
  await page.waitForSelector('#demand input.pick');
  const lines = await page.$$eval('#demand input.pick', (els) => els.length);
  expect('seven open demand lines', lines === 7, String(lines));
  await page.click('#pick-all');
  await page.click('#show-stock');
  await page.waitForSelector('#stock tbody tr');
  const stockRows = await page.$$eval('#stock tbody tr', (els) => els.length);
  expect('stock shown for the picked lines', stockRows >= 6, String(stockRows));
  await shot('picked');

  // 3. Run with the default switches, on the warehouses chosen by name in this step.
  await page.goto(`http://127.0.0.1:${port}/#run`);
  const stocks = await page.$$eval('#run-stocks label', (ls) => ls.map((l) => l.textContent.trim()));
  expect('warehouses by name where the run is', stocks.length >= 2 && stocks.every((x) => / - /.test(x)) &&
    !stocks.some((x) => /^\d+$/.test(x)), stocks.join(' | '));
  await page.click('#run-mrp');
  await page.waitForSelector('#report tbody tr');
  const reportRows = await page.$$eval('#report tbody tr', (els) => els.length);
  expect('twelve report rows', reportRows === 12, String(reportRows));
  // The arithmetic is on screen, each figure in its item's decimals: the
  // spokes count in whole pieces.
  const heads = await page.$$eval('#report th', (ths) => ths.map((th) => th.textContent));
  expect('the report shows safety stock, made parts in stock and the suggestion',
    ['安全库存', '半成品库存', '建议采购', '单位'].every((h) => heads.some((x) => x.startsWith(h))), heads.join(' | '));
  expect('the spokes need 2,278 pieces', (await text('#report')).includes('2,278'));
  const toBuy = await page.$$eval('#report td.to-buy', (els) => els.length);
  await page.click('#act-only');
  const acting = await page.$$eval('#report tbody tr', (els) => els.length);
  expect('only the rows to act on', acting === toBuy && acting > 0 && acting < reportRows, `${acting} of ${reportRows}`);
  await page.click('#act-only');
  // A column's own filter: only the made parts.
  await page.select('#class-filter', '3');
  const made = await page.$$eval('#report tbody tr', (rows) => rows.map((r) => r.children[13].textContent));
  expect('the class filter keeps one class', made.length > 0 && made.every((c) => c === '自制'), made.join(' | '));
  await page.select('#class-filter', '');
  await shot('report');

  // A reload keeps the work: signed in, the report where it was.
  await page.reload();
  await page.waitForSelector('#report tbody tr');
  await waitText('#who', 'planner');
  await page.waitForFunction(() => !document.querySelector('#review').hidden, { timeout: 15000 });
  const kept = await page.$$eval('#report tbody tr', (els) => els.length);
  expect('a reload keeps the report and the sign-in', kept === reportRows &&
    !(await page.$eval('#review', (el) => el.hidden)), `${kept} rows`);

  // 4. Pegging of the frames row: the three sales-order lines behind it.
  const frameRow = await page.$$eval('#report tbody tr', (rows) => rows.findIndex((r) => r.textContent.includes('车架总成')));
  await page.click(`#report tbody tr:nth-child(${frameRow + 1})`);
  await page.waitForSelector('#pegging tbody tr');
  const pegs = await page.$$eval('#pegging tbody tr', (rows) => rows.map((r) => r.textContent));
  expect('the frames peg to three sales-order lines, by kind, product and date',
    pegs.length === 3 && pegs.every((p) => p.includes('销售订单') && p.includes('SEORD') && /2026-\d\d-\d\d/.test(p)),
    pegs.join(' | '));
  // Beside the grid, not below it: the panel's top is level with the grid's.
  const [gridTop, pegTop] = await page.evaluate(() => [document.querySelector('#report').getBoundingClientRect().top,
    document.querySelector('aside.pegs').getBoundingClientRect().top]);
  expect('the pegging beside the row', Math.abs(gridTop - pegTop) < 60, `${gridTop} / ${pegTop}`);
  // By keyboard: the next row, Enter, its pegging.
  const chosenBefore = await page.$eval('#report tr.chosen', (r) => r.rowIndex);
  await page.keyboard.press('ArrowDown');
  await page.keyboard.press('Enter');
  await page.waitForFunction((before) => {
    const rows = [...document.querySelectorAll('#pegging tbody tr')].map((r) => r.textContent).join('|');
    return rows && rows !== before;
  }, {}, pegs.join('|'));
  const chosenAfter = await page.$eval('#report tr.chosen', (r) => r.rowIndex);
  const pegsAfter = await page.$$eval('#pegging tbody tr', (rows) => rows.map((r) => r.textContent).join('|'));
  expect('the keyboard moves to the next row and shows its pegging',
    chosenAfter === chosenBefore + 1 && pegsAfter !== pegs.join('|'), `${chosenBefore} -> ${chosenAfter}`);
  // The report's file is the report as shown, under the page's titles.
  const exported = new Promise((resolve) => page.on('request', (r) => {
    if (r.url().includes('/api/export/report.csv')) resolve(JSON.parse(r.postData()));
  }));
  await page.click('#export-report-csv');
  const sent = await exported;
  expect('the export carries the page\'s titles', Object.keys(sent.rows[0]).includes('物料代码') &&
    !Object.keys(sent.rows[0]).includes('FItemID'), Object.keys(sent.rows[0]).join(','));
  // Sort by need, descending: the spokes first.
  await page.click('#report th[data-key="FNeedQty"]');
  await page.click('#report th[data-key="FNeedQty"]');
  expect('sorted by need, largest first', (await page.$eval('#report tbody tr', (r) => r.textContent)).includes('辐条'));
  await shot('pegging');

  // 5. Confirm the purchased lines with suppliers, check credit, make orders.
  await page.goto(`http://127.0.0.1:${port}/#confirm`);
  await page.waitForSelector('#tobuy input.supplier');
  await page.$$eval('#tobuy tbody tr', (rows) => rows.forEach((r) => {
    const supplier = r.querySelector('input.supplier');
    const item = r.children[1].textContent;
    const code = { '3.04': 'S002', '3.06': 'S001', '3.08': 'S001' }[item];
    if (code) supplier.value = code; else r.querySelector('input.buy').checked = false;
  }));
  // Quantities are the planner's to set; a quantity of 0 is refused with its item.
  const spokesQty = `#tobuy tbody tr:nth-child(${(await page.$$eval('#tobuy tbody tr', (rows) =>
    rows.findIndex((r) => r.children[1].textContent === '3.04'))) + 1}) input.qty`;
  const originalQty = await page.$eval(spokesQty, (el) => el.value);
  await page.$eval(spokesQty, (el) => { el.value = '0'; });
  await page.click('#confirm-lines');
  await waitText('#confirm-msg', '3.04');
  expect('a quantity of 0 is refused with its item', (await text('#confirm-msg')).includes('3.04'), await text('#confirm-msg'));
  await page.$eval(spokesQty, (el, v) => { el.value = v; }, originalQty);
  // An unknown code is refused where it was typed, before anything is priced.
  const spokes = await page.$$eval('#tobuy tbody tr', (rows) => rows.findIndex((r) => r.children[1].textContent === '3.04'));
  const spokesCode = `#tobuy tbody tr:nth-child(${spokes + 1}) input.supplier`;
  await page.$eval(spokesCode, (el) => { el.value = 'S999'; });
  await page.click('#confirm-lines');
  await waitText('#confirm-msg', 'S999');
  expect('an unknown supplier code is refused inline', await page.$eval(spokesCode, (el) => el.classList.contains('invalid')));
  await page.click(spokesCode, { clickCount: 3 });
  await page.keyboard.type('S002');
  await page.keyboard.press('Tab');
  await page.waitForFunction((sel) => !document.querySelector(sel).classList.contains('invalid'), {}, spokesCode);
  // Typed codes stay when the page is drawn again.
  await page.click('nav a[data-step="review"]');
  await page.click('nav a[data-step="confirm"]');
  expect('typed codes survive a change of step', (await page.$eval(spokesCode, (el) => el.value)) === 'S002');
  await page.click('#confirm-lines');
  await page.waitForSelector('#priced tbody tr');
  await page.waitForFunction(() => !document.querySelector('#confirm-lines').disabled);
  expect('totals per supplier under the priced lines', /S001.*S002|S002.*S001/.test(await text('#priced-totals')), await text('#priced-totals'));
  const priced = await page.$$eval('#priced tbody tr', (rows) => rows.length);
  expect('five priced purchase lines', priced === 5, String(priced));
  expect('the spokes priced at 0.80', (await text('#priced')).includes('0.80'));
  await page.click('#check-credit');
  await waitText('#order-msg', '信用');
  await shot('confirmed');
  // A double click on "make purchase orders": one question, one set of orders.
  const ordersBefore = await countOrders();
  await page.click('#make-orders', { clickCount: 2 });
  await waitText('#order-msg', 'POORD');
  const orders = await text('#order-msg');
  expect('two purchase orders made', (orders.match(/POORD\d+/g) || []).length === 2, orders);
  expect('a double click makes one set of orders', (await countOrders()) === ordersBefore + 2,
    `${ordersBefore} -> ${await countOrders()}`);
  expect('asked once, with the orders per supplier', questions.length === 1 &&
    questions[0].includes('S001: 4') && questions[0].includes('S002: 1'), JSON.stringify(questions));
  await shot('ordered');

  // The ordered lines are not bought again, not even as a plan ...
  const saveState = await page.$eval('#save-plan', (b) => [b.disabled, b.title]);
  expect('ordered lines are not planned again: the button says why', saveState[0] && saveState[1].includes('已生成采购订单'),
    saveState.join(' / '));
  expect('nothing more was ordered', (await countOrders()) === ordersBefore + 2);
  // ... unless the planner prices them again.
  await page.click('#confirm-lines');
  await page.waitForFunction(() => !document.querySelector('#confirm-lines').disabled);  // its answer came
  await page.click('#save-plan');
  await waitText('#order-msg', 'CJ');
  const planNo = (await text('#order-msg')).match(/CJ\d+/)[0];
  expect('a purchase plan saved', /^CJ\d{11}$/.test(planNo), planNo);
  await shot('plan-saved');

  // 6. The plan's lines; push the first one.
  await page.goto(`http://127.0.0.1:${port}/#plans`);
  await page.type('#plan-no', planNo);
  await page.click('#plans-load');
  await page.waitForSelector('#plan-lines tbody tr');
  const planLines = await page.$$eval('#plan-lines tbody tr', (rows) => rows.length);
  expect('the plan has five lines', planLines === 5, String(planLines));
  await page.click('#plan-lines input.plan-line');
  const beforePush = await countOrders();
  await page.click('#plan-push', { clickCount: 2 });
  await waitText('#plans-msg', 'POORD');
  expect('a double click pushes one order', (await countOrders()) === beforePush + 1);
  expect('the push asked first', questions.length === 2 && questions[1].includes('S002: 1'), JSON.stringify(questions));
  const pushed = await text('#plans-msg');
  expect('the first line pushed into an order', /POORD\d+/.test(pushed), pushed);
  const cells = await page.$eval('#plan-lines tbody tr', (r) => [...r.children].map((c) => c.textContent));
  expect('the pushed line shows as ordered and closed', cells[8] === '2,298' && cells[10] === '已全部下单', cells.join(' | '));
  await shot('pushed');
  // Pushed again, the closed line is refused in the page: no empty order.
  const beforeAgain = await countOrders();
  await page.click('#plan-lines input.plan-line');
  const pushState = await page.$eval('#plan-push', (b) => [b.disabled, b.title]);
  expect('a closed line is not pushed again: the button says why', pushState[0] && pushState[1].includes('不是未关闭的行'),
    pushState.join(' / '));
  expect('nothing more was ordered by it', (await countOrders()) === beforeAgain);
  await page.click('#plan-lines input.plan-line');

  // English, and an error shown next to its cause.
  await page.click('#lang');
  expect('nothing to delete before a line is chosen', await page.$eval('#plan-delete', (b) => b.disabled && b.title.includes('Choose rows')));
  await page.click('#plan-lines input.plan-line');
  await page.click('#plan-delete');
  await waitText('#plans-msg', 'linked to the purchase orders');
  expect('deleting a plan with orders is refused', (await page.$eval('#plans-msg', (el) => el.className)).includes('error'));
  await shot('refused-in-english');

  // One picked line runs that line alone, not its whole order.
  await page.click('nav a[data-step="pick"]');
  await page.waitForSelector('#demand input.pick');
  // The lines the plan covers are marked with it, and "all" leaves them out.
  const planned = await page.$$eval('#demand tr.planned', (rows) => rows.map((r) => r.lastElementChild.textContent));
  expect('lines a plan covers are marked with the plan', planned.length > 0 && planned.every((p) => /CJ\d+/.test(p)), planned.join(' | '));
  // "All" shows whether everything is picked: from all on, all off.
  if (!(await page.$eval('#pick-all', (b) => b.checked))) await page.click('#pick-all');
  await page.click('#pick-all');
  await page.click('#pick-all');  // everything is planned: nothing is picked
  await waitText('#pick-msg', 'already planned');
  expect('"all" leaves planned lines out', (await text('#pick-msg')).startsWith('picked 0'), await text('#pick-msg'));
  const one = await page.$$eval('#demand tbody tr', (rows) => rows.findIndex((r) =>
    r.children[1].textContent === 'SEORD000001' && r.children[2].textContent === '2'));
  await page.click(`#demand tbody tr:nth-child(${one + 1}) input.pick`);
  await page.click('nav a[data-step="run"]');
  await page.click('#run-mrp');
  await page.waitForFunction(() => !document.querySelector('#run-mrp').disabled);
  await page.click('#report tbody tr');
  await page.waitForSelector('#pegging tbody tr');  // asked of the service when chosen
  const onePegs = await page.$$eval('#pegging tbody tr', (rows) => rows.map((r) => [r.children[1].textContent, r.children[2].textContent]));
  expect('one picked line runs one line', onePegs.length > 0 &&
    onePegs.every(([bill, line]) => bill === 'SEORD000001' && line === '2'), JSON.stringify(onePegs));

  // The same line planned by date: the items to order, one item's weeks,
  // one order's reasons and the demand behind it.
  await page.click('nav a[data-step="phased"]');
  await page.$eval('#ph-today', (el) => { el.value = '2026-11-30'; });
  await page.click('#ph-save');  // this run and the next are kept
  await page.click('#ph-run');
  await page.waitForSelector('#ph-items tbody tr');
  await page.select('#ph-filter', 'FShortage');
  const toOrder = await page.$$eval('#ph-items tbody tr', (rows) => rows.map((r) => r.children[6].textContent));
  expect('the shortage filter keeps items with orders', toOrder.length > 0 && toOrder.every((n) => Number(n) > 0), toOrder.join(' | '));
  await page.click('#ph-items tbody tr');
  await page.waitForSelector('#ph-buckets tbody tr');
  const figures = await page.$$eval('#ph-buckets tbody tr', (rows) => rows.map((r) => r.children[0].textContent));
  expect('an item shows its record by week', figures.length === 6 && figures[0] === 'Gross', figures.join(' | '));
  await page.waitForSelector('#ph-orders tbody tr');
  await page.click('#ph-orders tbody tr');
  await page.waitForSelector('#ph-reasons li');
  const reasons = await page.$$eval('#ph-reasons li', (l) => l.map((x) => x.textContent));
  expect('an order says why', reasons.length > 0 && reasons[0].startsWith('net requirement'), reasons.join(' | '));
  const sources = await page.$$eval('#ph-pegs tbody tr', (rows) => rows.map((r) => r.children[0].textContent));
  expect('its pegging goes back to the picked line', sources.length > 0 &&
    sources.every((p) => p === 'SEORD000001/2' || p.startsWith('planned ')), sources.join(' | '));
  // The item's parameters and a holiday, set in the page, shape the next run.
  await page.waitForFunction(() => !document.querySelector('#ph-params').hidden);
  const item = await page.$eval('#ph-item-title', (el) => el.textContent.split(' ')[0]);
  await page.$eval('#ph-params input[name="min"]', (el) => { el.value = '40'; });
  await page.click('#ph-params-save');
  await waitText('#ph-params-msg', 'Planning parameters saved');
  await page.$eval('#ph-holiday', (el) => { el.value = '2026-12-04'; });
  await page.click('#ph-holiday-add');
  await waitText('#ph-holidays', '2026-12-04');
  await page.evaluate(() => { document.querySelector('#phased-msg').textContent = ''; });
  await page.click('#ph-run');
  await waitText('#phased-msg', 'Time-phased plan done');
  await page.evaluate(() => { document.querySelector('#ph-orders').innerHTML = ''; });
  await page.$$eval('#ph-items tbody tr', (rows, n) => rows.find((r) => r.children[0].textContent === n).click(), item);
  await page.waitForSelector('#ph-orders tbody tr');
  const why = await page.$eval('#ph-orders tbody tr', (r) => [...r.children].map((c) => c.textContent).join(' | '));
  expect('the minimum set in the page raises the order, released before the holiday',
    why.includes('raised to the minimum 40') && why.includes('2026-12-03'), why);
  await page.click('#ph-holiday-remove');
  await waitText('#ph-holidays', 'no holidays');
  // The two runs kept compare: the item whose minimum was set is resized.
  await page.click('#ph-compare');
  await page.waitForSelector('#ph-changes tbody tr');
  const changes = await page.$$eval('#ph-changes tbody tr', (rows) => rows.map((r) => `${r.children[1].textContent} ${r.children[0].textContent}`));
  expect('the runs compare: the item is resized', changes.some((c) => c.startsWith(item) && c.includes('resized')), changes.join(' | '));
  await shot('time-phased');
  // Its planned purchases with a supplier become a purchase plan, asked first.
  const asked = questions.length;
  await page.click('#ph-plan');
  await waitText('#phased-msg', 'Purchase plan saved');
  expect('the planned purchases became a plan, asked first', questions.length === asked + 1 &&
    questions[asked].includes('S003'), questions.slice(asked).join(' | '));
  const again = await page.$eval('#ph-plan', (b) => [b.disabled, b.title]);
  expect('the same purchases are not planned twice: the button says why', again[0] &&
    again[1].includes('Run the time-phased plan again'), again.join(' / '));

  // A revoked token signs the page out, in the page's language.
  execFileSync(binary, ['token', 'revoke', '--dsn', dsn, '--token', token], { stdio: 'ignore' });
  await page.click('nav a[data-step="plans"]');
  await page.click('#plans-load');
  await waitText('#signin-msg', 'sign in again');
  expect('a revoked token shows the sign-in, the header cleared',
    !(await page.$eval('#signin', (el) => el.hidden)) && (await text('#who')) === '');
  await shot('revoked');

  // On a phone (390 px): the sign-in fits the screen.
  const phone = await browser.newPage();
  await phone.setViewport({ width: 390, height: 844 });
  await phone.goto(`http://127.0.0.1:${port}/`);
  const [tokenRight, buttonRight, pageWidth] = await phone.evaluate(() => [
    document.querySelector('#token').getBoundingClientRect().right,
    document.querySelector('#signin-go').getBoundingClientRect().right,
    document.documentElement.scrollWidth]);
  expect('the sign-in fits a 390 px screen', tokenRight <= 390 && buttonRight <= 390 && pageWidth <= 390,
    `${tokenRight} ${buttonRight} ${pageWidth}`);
  await phone.screenshot({ path: path.join(outDir, `${String(++step).padStart(2, '0')}-phone.png`) });
} catch (e) {
  expect('the flow ran to its end', false, e.stack);
} finally {
  await browser.close();
  server.kill();
}
if (failures.length) {
  console.error(`${failures.length} check(s) failed; screenshots in ${outDir}`);
  process.exit(1);
}
console.log(`every check passed; screenshots in ${outDir}`);
