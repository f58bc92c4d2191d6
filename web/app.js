// The planner's workbench: one page over the mrpcalc HTTP service.
'use strict';

const TEXTS = {
  zh: {
    workbench: '计划工作台', s1: '1 登录', s2: '2 选择需求', s3: '3 运行 MRP', s4: '4 查看结果',
    s5: '5 确认采购', s6: '6 采购计划', s7: '7 仓库范围', token: '令牌', signin: '登录',
    s8: '8 分时段计划', asOf: '计划日期', keepRun: '保存本次运行', runPhased: '运行分时段计划',
    exceptions: '例外', why: '原因与需求来源', bySupplier: '按供应商的计划采购',
    phPlan: '计划采购转为采购计划', exAll: '全部物料', exLate: '延迟', exShortage: '短缺',
    exSafety: '低于安全库存', exNoSupplier: '无供应商', exAction: '有行动建议',
    phDone: '分时段计划完成: ', phRun: ' 已保存为运行 ', phNoPurchase: '没有计划采购',
    askPhPlan: '将这些计划采购保存为采购计划?', FFrom: '起始', FGross: '毛需求', FScheduled: '预计入库',
    FProjected: '预计库存', FNet: '净需求', FPlannedReceipts: '计划收货', FPlannedReleases: '计划下达',
    FDue: '到期', FRelease: '下达', FLate: '延迟', FReasons: '原因', FKind: '类型', FOrders: '订单数',
    FOnHand: '现有库存', FSafety: '安全库存', FActions: '行动建议', FSource: '来源', FLines: '行数',
    calendar: '工作日历', holiday: '假日', addHoliday: '设为假日', removeHoliday: '设为工作日',
    saveWeek: '保存工作日', saveParams: '保存计划参数', pLead: '采购提前期 (工作日)',
    pMake: '生产提前期 (工作日)', pPerUnit: '每件生产天数', pSafety: '安全库存', pSafetyDays: '安全库存天数',
    pMin: '最小订购量', pMultiple: '订购倍数', pMax: '最大订购量 (拆分)', pPeriod: '合并天数',
    pFence: '冻结期 (工作日)', paramsSaved: '已保存计划参数, 重新运行后生效: ', calendarSaved: '已保存工作日历',
    weekdays: ['一', '二', '三', '四', '五', '六', '日'], holidays: '假日: ', noHolidays: '无假日',
    chooseDay: '请先选择日期。',
    runs: '已保存的运行', runBefore: '较早', runAfter: '较晚', compare: '比较',
    noChange: '两次运行的计划订单没有变化', FDueBefore: '原到期', FDueAfter: '现到期', FQtyBefore: '原数量',
    FQtyAfter: '现数量', added: '新增', removed: '删除', moved: '改期', resized: '改量',
    'moved and resized': '改期并改量', twoRuns: '请选择两次运行。',
    figure: '项目', orders: '张计划订单', runAgain: '如需重新计划，请再次运行分时段计划。', purchase: '采购', production: '生产',
    filter: '筛选', warehouses: '仓库', net: '按库存冲减', showStock: '显示库存', form: '表单',
    formPlan: '计划 (毛需求)', formSuggest: '采购建议 (含供应商)', single: '只展开一层',
    runMrp: '运行', pegging: '需求来源', confirmLines: '确认并计价', checkCredit: '检查信用额度',
    makeOrders: '生成采购订单', savePlan: '保存为采购计划', planNo: '计划单号', from: '从', to: '到',
    items: '物料', openOnly: '只显示未关闭', load: '查询', push: '下推采购订单', close: '关闭',
    reopen: '反关闭', delete: '删除计划', save: '保存', signedIn: '已登录：', rows: '行',
    page: '页', picked: '已选', noneChosen: '请先选择行。', reportDone: 'MRP 完成：',
    creditOk: '所有供应商均在信用额度内。', creditOff: '未启用信用控制。', creditOver: '超出信用额度：',
    ordersMade: '已生成采购订单：', planSaved: '已保存采购计划：', pushed: '已下推采购订单：',
    done: '完成', refused: '未处理', scopeNow: '当前范围：', scopeAll: '未保存范围，全部仓库：',
    scopeSaved: '已保存仓库范围。', clickRow: '点击结果行查看其需求来源。',
    NowStock: '现有库存', SaveStock: '安全库存', Moving: '在途', UnSale: '未出库销售',
    Producing: '在制', Produc: '已领料', MidStockQty: '半成品库存', Virtual: '虚仓',
    FItemNumber: '物料代码', FItemName: '物料名称', FAuxProp: '辅助属性', FNeedQty: '毛需求',
    FCurrentQty: '库存', FMovingQty: '在途', FProducingQty: '在制', FProducQty: '已领',
    FQty: '数量', FSupplyNumber: '供应商', FItemProp: '物料属性', FDate: '需求日期',
    FBillNo: '单号', FEntryID: '行号', FTranType: '类型', FUnitName: '单位', FPrice: '单价',
    FAuxQty: '采购数量', FAuxPrice: '采购单价', FTaxRate: '税率', Fdate: '需求日期',
    FPushQty: '待下推', FPurchaseFinishQty: '已下单', FClosed: '关闭', FSourceNo: '源单',
    FKey: '计划行', FFinishDate: '需求日期', FVDate: '计划日期', FBSUnitName: '单位', FAllStockQty: '库存', FActualQty: '实仓库存', FName: '名称', FNumber: '代码',
    Succeed: '成功', Error: '信息', FSupplyName: '供应商', FBillNO: '单号', FInterID: '内码', FItemID: '物料内码',
    kind81: '销售订单', kind85: '生产任务', kind91: '委外加工', kind: '单据类型', product: '产品', neededOn: '需求日期',
    class1: '外购', class2: '组装', class3: '自制', classOther: '其他',
    amount: '金额', total: '合计', unknownSupplier: '没有这个供应商代码：', flagged: '行缺少供应商或单价，不能下单：',
    plannedIn: '已列入采购计划', withPlanned: '全选时包括已列入计划的行', plannedLeftOut: '行已列入采购计划，未选：',
    stockCounts: '计入库存的仓库（来自已保存的仓库范围）', noStocks: '未选仓库：不计库存',
    noOpenLine: '所选行都已关闭。', noClosedByHand: '所选行都不是手工关闭的。',
    badQty: '数量必须大于 0：', badDate: '日期不对：', allClasses: '全部属性',
    prev: '上一页', next: '下一页', shown: '显示', of: '共',
    signOut: '退出', signInFirst: '请先登录。', tokenRefused: '令牌无效或已被吊销，请重新登录。',
    closed0: '未关闭', closed1: '已全部下单', closed2: '手工关闭', line: '行', closedNow: '已关闭',
    reopenedNow: '已反关闭', notOpen: '不是未关闭的行，不能下推：', nothingToPush: '没有待下推数量：',
    FSaveQty: '安全库存', FMidStockQty: '半成品库存', suggestion: '建议采购', actOnly: '只显示需采购的行',
    askOrders: '将生成采购订单：', askPush: '将下推为采购订单：', askDelete: '将删除采购计划：', lines: '行',
    proceed: '是否继续？', alreadyOrdered: '这些行已生成采购订单：', alreadyPlanned: '这些行已保存为采购计划：',
    confirmAgain: '如需再次采购，请重新“确认并计价”。',
  },
  en: {
    workbench: 'planning workbench', s1: '1 Sign in', s2: '2 Pick demand', s3: '3 Run MRP',
    s4: '4 Review', s5: '5 Confirm', s6: '6 Plans', s7: '7 Stock scope', token: 'Token',
    s8: '8 Time-phased', asOf: 'As of', keepRun: 'Keep this run', runPhased: 'Run the time-phased plan',
    exceptions: 'Exceptions', why: 'Reasons and pegging', bySupplier: 'Planned purchases by supplier',
    phPlan: 'Turn the planned purchases into a purchase plan', exAll: 'All items', exLate: 'Late',
    exShortage: 'Shortage', exSafety: 'Below safety stock', exNoSupplier: 'No supplier',
    exAction: 'Action message', phDone: 'Time-phased plan done: ', phRun: ' kept as run ',
    phNoPurchase: 'nothing planned to buy', askPhPlan: 'Save these planned purchases as a purchase plan?',
    FFrom: 'From', FGross: 'Gross', FScheduled: 'Scheduled', FProjected: 'Projected', FNet: 'Net',
    FPlannedReceipts: 'Planned receipts', FPlannedReleases: 'Planned releases', FDue: 'Due',
    FRelease: 'Release', FLate: 'Late', FReasons: 'Reasons', FKind: 'Kind', FOrders: 'Orders',
    FOnHand: 'On hand', FSafety: 'Safety', FActions: 'Actions', FSource: 'Source', FLines: 'Lines',
    calendar: 'Working calendar', holiday: 'Holiday', addHoliday: 'Make it a holiday',
    removeHoliday: 'Make it a working day', saveWeek: 'Save the working week',
    saveParams: 'Save the planning parameters', pLead: 'Purchase lead time (working days)',
    pMake: 'Production lead time (working days)', pPerUnit: 'Working days per unit made',
    pSafety: 'Safety stock', pSafetyDays: 'Safety stock in days of need', pMin: 'Minimum order',
    pMultiple: 'Order multiple', pMax: 'Maximum order (splits)', pPeriod: 'Days grouped into one order',
    pFence: 'Firm time fence (working days)', paramsSaved: 'Planning parameters saved; run again to use them: ',
    calendarSaved: 'Working calendar saved', weekdays: ['Mon', 'Tue', 'Wed', 'Thu', 'Fri', 'Sat', 'Sun'],
    holidays: 'Holidays: ', noHolidays: 'no holidays', chooseDay: 'Choose a day first.',
    runs: 'Saved runs', runBefore: 'Earlier', runAfter: 'Later', compare: 'Compare',
    noChange: 'No planned order changed between the two runs', FDueBefore: 'Due before',
    FDueAfter: 'Due now', FQtyBefore: 'Qty before', FQtyAfter: 'Qty now', added: 'added',
    removed: 'removed', moved: 'moved', resized: 'resized', 'moved and resized': 'moved and resized',
    twoRuns: 'Choose two runs.',
    figure: 'Figure', orders: 'planned orders', runAgain: 'Run the time-phased plan again to plan anew.', purchase: 'purchase', production: 'production',
    signin: 'Sign in', filter: 'Filter', warehouses: 'Warehouses', net: 'Net against stock',
    showStock: 'Show stock', form: 'Form', formPlan: 'Planning (gross need)',
    formSuggest: 'Purchase suggestion (suppliers)', single: 'One level only', runMrp: 'Run',
    pegging: 'Pegging', confirmLines: 'Confirm and price', checkCredit: 'Check credit',
    makeOrders: 'Make purchase orders', savePlan: 'Save as purchase plan', planNo: 'Plan',
    from: 'From', to: 'To', items: 'Items', openOnly: 'Open lines only', load: 'Load',
    push: 'Push to orders', close: 'Close', reopen: 'Reopen', delete: 'Delete plan', save: 'Save',
    signedIn: 'Signed in: ', rows: 'rows', page: 'page', picked: 'picked',
    noneChosen: 'Choose rows first.', reportDone: 'MRP done: ', creditOk: 'Every supplier is within its credit limit.',
    creditOff: 'The credit check is off.', creditOver: 'Over the credit limit: ',
    ordersMade: 'Purchase orders made: ', planSaved: 'Purchase plan saved: ', pushed: 'Pushed to orders: ',
    done: 'done', refused: 'refused', scopeNow: 'Current scope: ', scopeAll: 'No stored scope; all warehouses: ',
    scopeSaved: 'Stock scope saved.', clickRow: 'Click a report row to see its demand lines.',
    NowStock: 'Stock on hand', SaveStock: 'Safety stock', Moving: 'On order', UnSale: 'Open sales',
    Producing: 'In production', Produc: 'Issued', MidStockQty: 'Made parts in stock', Virtual: 'Virtual warehouses',
    FItemNumber: 'Item', FItemName: 'Name', FAuxProp: 'Property', FNeedQty: 'Need', FCurrentQty: 'Stock',
    FMovingQty: 'On order', FProducingQty: 'In prod.', FProducQty: 'Issued', FQty: 'Qty',
    FSupplyNumber: 'Supplier', FItemProp: 'Class', FDate: 'Needed on', FBillNo: 'Bill', FEntryID: 'Line',
    FTranType: 'Type', FUnitName: 'Unit', FPrice: 'Price', FAuxQty: 'Purchase qty', FAuxPrice: 'Purchase price',
    FTaxRate: 'Tax %', Fdate: 'Needed on', FPushQty: 'To push', FPurchaseFinishQty: 'Ordered', FClosed: 'Closed',
    FSourceNo: 'Sources', FKey: 'Plan line', FFinishDate: 'Needed on', FVDate: 'Plan date', FBSUnitName: 'Unit', FAllStockQty: 'Stock', FActualQty: 'Real stock', FName: 'Name',
    FNumber: 'Code', Succeed: 'Done', Error: 'Message', FSupplyName: 'Supplier', FBillNO: 'Bill', FInterID: 'Id', FItemID: 'Item id',
    kind81: 'sales order', kind85: 'production task', kind91: 'outsourcing', kind: 'Document', product: 'Product', neededOn: 'Needed on',
    class1: 'purchased', class2: 'assembled', class3: 'made', classOther: 'other',
    amount: 'Amount', total: 'Total', unknownSupplier: 'No supplier with the code: ', flagged: 'lines lack a supplier or a price and cannot be ordered: ',
    plannedIn: 'Planned in', withPlanned: '"All" includes planned lines', plannedLeftOut: 'lines already planned, not picked: ',
    stockCounts: 'Warehouses whose stock counts (from the saved stock scope)', noStocks: 'no warehouse: stock does not count',
    noOpenLine: 'Every chosen line is closed.', noClosedByHand: 'No chosen line was closed by hand.',
    badQty: 'the quantity must be above 0: ', badDate: 'not a date: ', allClasses: 'All classes',
    prev: 'Previous page', next: 'Next page', shown: 'shown', of: 'of',
    signOut: 'Sign out', signInFirst: 'Sign in first.', tokenRefused: 'The token is not valid or was revoked: sign in again.',
    closed0: 'open', closed1: 'fully ordered', closed2: 'closed by hand', line: 'line', closedNow: 'closed',
    reopenedNow: 'reopened', notOpen: 'Only open lines can be pushed: ', nothingToPush: 'Nothing left to push: ',
    FSaveQty: 'Safety stock', FMidStockQty: 'Made parts in stock', suggestion: 'Suggestion', actOnly: 'Only rows to act on',
    askOrders: 'Purchase orders to make: ', askPush: 'Purchase orders to push: ', askDelete: 'Plans to delete: ', lines: 'lines',
    proceed: 'Go ahead?', alreadyOrdered: 'These lines were ordered already: ', alreadyPlanned: 'These lines were planned already: ',
    confirmAgain: 'To buy them again, press “Confirm and price” again.',
  },
};

const state = {
  lang: localStorage.getItem('mrpcalc.lang') || 'zh',
  token: sessionStorage.getItem('mrpcalc.token') || '',
  me: null,
  demand: [],
  demandView: [],
  picked: new Set(),
  report: [], peggingId: null, pegging: [], reportView: [], page: 0, sortKey: null, sortUp: true, chosenRow: -1,
  priced: [],
  pricedDone: null,
  supplierCodes: new Map(),  // by report row: the code typed on the confirmation
  notBuying: new Set(),      // report rows unticked on the confirmation
  toBuyQty: new Map(),       // by report row: the quantity set on the confirmation
  toBuyDate: new Map(),      // by report row: the date set there
  supplierNames: new Map(),  // by code: the supplier's name, null when there is none  // what the priced lines were bought as, once bought
  planLines: [],
};
const PAGE = 100;

// A pager of a long list: previous, "page 3 / 38", next.
function renderPager(el, page, pages, go) {
  if (pages <= 1) {
    el.innerHTML = '';
    return;
  }
  el.innerHTML = `<button type="button" data-go="${page - 1}" aria-label="${t('prev')}" ${page === 0 ? 'disabled' : ''}>‹</button>` +
    ` <span>${t('page')} ${page + 1} / ${pages}</span> ` +
    `<button type="button" data-go="${page + 1}" aria-label="${t('next')}" ${page >= pages - 1 ? 'disabled' : ''}>›</button>`;
  el.onclick = (e) => {
    const b = e.target.closest('button');
    if (b && !b.disabled) go(Number(b.dataset.go));
  };
}

// One page of a list, and the pager under it.
function paged(list, page, pagerId, go) {
  const pages = Math.max(1, Math.ceil(list.length / PAGE));
  const p = Math.min(page, pages - 1);
  renderPager($(pagerId), p, pages, go);
  return { page: p, rows: list.slice(p * PAGE, p * PAGE + PAGE), from: p * PAGE };
}
const $ = (id) => document.getElementById(id);
const t = (key) => (TEXTS[state.lang][key] ?? key);

function say(id, text, kind = 'ok') {
  const el = $(id);
  el.textContent = text;
  el.className = 'msg ' + kind;
}

async function api(method, path, body, key) {
  const headers = {
    'Authorization': 'Bearer ' + state.token,
    'Content-Type': 'application/json',
    'Accept-Language': state.lang,
  };
  if (key) headers['Idempotency-Key'] = key;
  const response = await fetch(path, {
    method,
    headers,
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  const text = await response.text();
  let data = null;
  try { data = JSON.parse(text); } catch (e) { data = null; }
  if (response.status === 401) {
    // Signed out by the service: the page says so in its own language.
    forgetSignIn();
    show('signin');
    say('signin-msg', t('tokenRefused'), 'error');
    throw new Error(t('tokenRefused'));
  }
  if (!response.ok) {
    throw new Error(data && data.error ? data.error.description : `${response.status} ${text}`);
  }
  return data;
}

const call = (cls, method, args) => api('POST', `/api/call/ZUVMMrpCalculate.${cls}/${method}`, { args });

// A write: sent with an idempotency key, so that the service does it once
// however often it arrives. The key stays with the same write until an
// answer comes (a lost answer and the planner's retry reuse it), and goes
// with the answer.
const pendingKeys = new Map();  // method and arguments -> key

function newKey() {
  const bytes = new Uint8Array(16);
  crypto.getRandomValues(bytes);
  return [...bytes].map((b) => b.toString(16).padStart(2, '0')).join('');
}

async function write(cls, method, args) {
  const what = `${cls}.${method} ${JSON.stringify(args)}`;
  if (!pendingKeys.has(what)) pendingKeys.set(what, newKey());
  try {
    const answer = await api('POST', `/api/call/ZUVMMrpCalculate.${cls}/${method}`, { args }, pendingKeys.get(what));
    pendingKeys.delete(what);
    return answer;
  } catch (e) {
    if (!(e instanceof TypeError)) pendingKeys.delete(what);  // answered with a refusal: nothing was written
    throw e;
  }
}

// Runs an action, showing its error next to it. The button that started
// it stays locked until it ends: a second click does nothing.
function guarded(msgId, action) {
  return async (event) => {
    const button = event && event.currentTarget instanceof HTMLButtonElement ? event.currentTarget : null;
    if (button) {
      if (button.disabled) return;
      button.disabled = true;
      button.setAttribute('aria-busy', 'true');
    }
    try {
      await action();
    } catch (e) {
      say(msgId, e.message, 'error');
    } finally {
      if (button) {
        button.disabled = false;
        button.removeAttribute('aria-busy');
      }
      updateActions();
    }
  };
}

// Actions that cannot apply are disabled, the reason in their title.
function setAction(id, reason) {
  const button = $(id);
  button.disabled = !!reason;
  button.title = reason || '';
}

function updateActions() {
  const flagged = state.priced.filter(lacksSupplierOrPrice);
  const bought = state.pricedDone ? `${state.pricedDone} ${t('confirmAgain')}` : '';
  const nothing = state.priced.length ? '' : t('noneChosen');
  setAction('make-orders', nothing || bought ||
    (flagged.length ? `${flagged.length} ${t('flagged')}${flagged.map((l) => l.FItemNumber).join(', ')}` : ''));
  setAction('save-plan', nothing || bought);
  const ticked = [...document.querySelectorAll('#plan-lines input.plan-line:checked')]
    .map((b) => state.planLines[Number(b.dataset.i)]);
  const none = ticked.length ? '' : t('noneChosen');
  const names = (lines) => lines.map((l) => planLineName(l.FInterID, l.FEntryID)).join(', ');
  const closed = ticked.filter((l) => l.FClosed !== 0);
  const empty = ticked.filter((l) => !(l.FPushQty > 0));
  setAction('plan-push', none || (closed.length ? t('notOpen') + names(closed) : '') ||
    (empty.length ? t('nothingToPush') + names(empty) : ''));
  setAction('plan-close', none || (ticked.some((l) => l.FClosed === 0) ? '' : t('noOpenLine')));
  setAction('plan-reopen', none || (ticked.some((l) => l.FClosed === 2) ? '' : t('noClosedByHand')));
  setAction('plan-delete', none);
  const p = state.phased;
  setAction('ph-plan', !p ? t('noneChosen') :
    p.planned ? `${t('alreadyPlanned')}${p.planned} ${t('runAgain')}` :
      (p.suppliers.some((g) => g.FSupplyNumber) ? '' : t('phNoPurchase')));
}

// Asks before a write that buys or destroys; false when the planner says no.
function ask(question) {
  return window.confirm(`${question}\n\n${t('proceed')}`);
}

function amount(v) {
  return Number(v || 0).toLocaleString(state.lang === 'zh' ? 'zh-CN' : 'en-US', { minimumFractionDigits: 2, maximumFractionDigits: 2 });
}

// Orders per supplier of lines to buy: "S001: 3 lines, 1,234.50".
function perSupplier(lines, supplierOf, valueOf) {
  const groups = new Map();
  lines.forEach((l) => {
    const g = groups.get(supplierOf(l)) || { lines: 0, value: 0 };
    g.lines += 1;
    g.value += valueOf(l);
    groups.set(supplierOf(l), g);
  });
  return [...groups].map(([s, g]) => `${s}: ${g.lines} ${t('lines')}, ${amount(g.value)}`).join('\n');
}

// Ids, codes and states print as they are; quantities in the item's own
// decimals (its FQtyDecimal) and prices with two, grouped by thousands as
// the page's language groups them.
const PLAIN = new Set(['FOrders', 'FLate', 'FActions', 'FLines', 'FOrder', 'FInterID', 'FEntryID', 'FItemID', 'FTranType', 'FSupplyID', 'FClosed',
  'Succeed', 'FQtyDecimal', 'FPriceDecimal', 'FItemPropID', 'FAuxPropID', 'FUnitID']);
const QUANTITIES = new Set(['FNeedQty', 'FCurrentQty', 'FSaveQty', 'FMovingQty', 'FUnStockQty',
  'FProducingQty', 'FProducQty', 'FMidStockQty', 'FSuggestQty', 'FQty', 'FAuxQty', 'FPushQty',
  'FPurchaseFinishQty', 'FAllStockQty', 'FActualQty']);

function number(v, decimals) {
  return v.toLocaleString(state.lang === 'zh' ? 'zh-CN' : 'en-US',
    { minimumFractionDigits: decimals, maximumFractionDigits: decimals });
}

function fmt(v, key, row) {
  if (v === null || v === undefined) return '';
  if (key === 'FClosed' && [0, 1, 2].includes(v)) return t(`closed${v}`);  // a state, in words
  if ((key === 'kind' || key === 'FTranType') && [81, 85, 91].includes(v)) return t(`kind${v}`);  // a document kind
  if (key === 'FKind' && (v === 'purchase' || v === 'production')) return t(v);
  if (key === 'FItemProp' && row) return t([1, 2, 3].includes(row.FItemPropID) ? `class${row.FItemPropID}` : 'classOther');

  if (typeof v === 'number') {
    if (PLAIN.has(key) || (key === undefined && Number.isInteger(v))) return String(v);
    const own = row && QUANTITIES.has(key) && Number.isInteger(row.FQtyDecimal) ? row.FQtyDecimal : 2;
    return number(v, Math.min(Math.max(own, 0), 10));
  }
  if (typeof v === 'string' && /^\d{4}-\d\d-\d\d 00:00:00$/.test(v)) return v.slice(0, 10);
  return String(v);
}

// A table of rows over the given columns; extra(row, i) gives leading cells.
function table(el, rows, columns, options = {}) {
  const head = (options.lead ? '<th></th>' : '') +
    columns.map((c) => `<th data-key="${c}">${t((options.labels && options.labels[c]) || c)}${state.sortKey === c && options.sortable ? (state.sortUp ? ' ▲' : ' ▼') : ''}</th>`).join('');
  const body = rows.map((r, i) => {
    const cls = options.rowClass ? options.rowClass(r, i) : '';
    const lead = options.lead ? `<td>${options.lead(r, i)}</td>` : '';
    const cells = columns.map((c) => {
      const cls = [typeof r[c] === 'number' ? 'n' : '', options.cellClass ? options.cellClass(r, c) : ''].join(' ').trim();
      return `<td class="${cls}">${escapeHtml(fmt(r[c], c, r))}</td>`;
    }).join('');
    const focus = options.focusable ? ' tabindex="0"' : '';
    return `<tr data-i="${options.index ? options.index(r, i) : i}" class="${cls}"${focus}>${lead}${cells}</tr>`;
  }).join('');
  el.innerHTML = `<thead><tr>${head}</tr></thead><tbody>${body}</tbody>`;
}

function escapeHtml(s) {
  return s.replace(/[&<>"]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' }[c]));
}

async function download(name, kind, rows) {
  const response = await fetch(`/api/export/${name}.${kind}`, {
    method: 'POST',
    headers: { 'Authorization': 'Bearer ' + state.token, 'Content-Type': 'application/json' },
    body: JSON.stringify({ rows }),
  });
  if (!response.ok) throw new Error(`${response.status}`);
  const blob = await response.blob();
  const a = document.createElement('a');
  a.href = URL.createObjectURL(blob);
  a.download = `${name}.${kind}`;
  a.click();
  URL.revokeObjectURL(a.href);
}

function renderClassFilter() {
  const el = $('class-filter');
  const chosen = el.value;
  el.innerHTML = [['', 'allClasses'], ['1', 'class1'], ['2', 'class2'], ['3', 'class3'], ['other', 'classOther']]
    .map(([v, k]) => `<option value="${v}" ${v === chosen ? 'selected' : ''}>${t(k)}</option>`).join('');
}

function applyLanguage() {
  document.documentElement.lang = state.lang;
  renderClassFilter();
  updateActions();
  document.querySelectorAll('[data-i18n]').forEach((el) => { el.textContent = t(el.dataset.i18n); });
  $('lang').textContent = state.lang === 'zh' ? 'English' : '中文';
  renderSwitches();
  renderDemand();
  renderReport();
  renderPegging();
  if ($('tobuy').innerHTML) renderToBuy();
  if (state.priced.length) renderPriced();
  if (state.planLines.length) renderPlans();
  renderPhased();
  if (state.calendar) renderCalendar(state.calendar);
}

function show(step) {
  if (!state.me && step !== 'signin') {
    state.wanted = step;  // where to go once signed in
    say('signin-msg', t('signInFirst'), 'error');
    step = 'signin';
  }
  document.querySelectorAll('main section').forEach((s) => { s.hidden = s.id !== step; });
  document.querySelectorAll('nav a').forEach((a) => a.classList.toggle('active', a.dataset.step === step));
  if (step === 'pick' && state.me && !state.demand.length) guarded('pick-msg', loadDemand)();
  if (step === 'confirm') renderToBuy();
  if (step === 'scope' && state.me) guarded('scope-msg', loadScope)();
  if (step === 'phased' && state.me) guarded('phased-msg', async () => { await loadCalendar(); await loadRuns(); })();
}

// 1. Sign in.
async function signIn() {
  state.token = $('token').value.trim() || state.token;
  state.me = await api('GET', '/api/me');
  sessionStorage.setItem('mrpcalc.token', state.token);
  $('who').textContent = `${state.me.name} (${state.me.user})`;
  $('signout').hidden = false;
  say('signin-msg', t('signedIn') + `${state.me.name} (${state.me.user})`);
  // Picks kept over a reload need their lines again.
  if (state.picked.size && !state.demand.length) await loadDemand();
  await loadRunStocks();
  const next = state.wanted && state.wanted !== 'signin' ? state.wanted : 'pick';
  state.wanted = null;
  if (location.hash === `#${next}`) show(next); else location.hash = `#${next}`;
}

// The warehouses whose stock counts, by name: the user's leaf warehouses,
// those of the saved stock scope ticked (all of them without one). The run
// and the stock view use the ticked ones.
async function loadRunStocks() {
  const list = await call('MrpDataServer', 'GetItemStock', [5, state.me.user, false]);
  const stored = await call('MrpDataServer', 'GetStockInfo', [state.me.user, '', '', '', 1, '']);
  const scope = new Set(String(stored.result ? stored.byref.sStockKey : '').split(',').filter(Boolean));
  const kept = $('warehouses').value ? new Set($('warehouses').value.split(',')) : null;  // restored work
  state.runStocks = (list.result || []).filter((w) => w.fDetail === 1);
  $('run-stocks').innerHTML = `<legend data-i18n="stockCounts">${t('stockCounts')}</legend>` + state.runStocks.map((w) => {
    const on = kept ? kept.has(String(w.FItemID)) : !scope.size || scope.has(String(w.FItemID));
    return `<label><input type="checkbox" class="run-stock" value="${w.FItemID}" ${on ? 'checked' : ''}> ${escapeHtml(`${w.FNumber} - ${w.FName}`)}</label>`;
  }).join('');
  chooseRunStocks();
}

function chooseRunStocks() {
  const ticked = [...document.querySelectorAll('#run-stocks input.run-stock:checked')];
  $('warehouses').value = ticked.map((b) => b.value).join(',');
  $('pick-stocks').textContent = ticked.length
    ? ticked.map((b) => b.parentElement.textContent.trim()).join(', ') : t('noStocks');
}

function forgetSignIn() {
  state.me = null;
  state.token = '';
  sessionStorage.removeItem('mrpcalc.token');
  $('who').textContent = '';
  $('signout').hidden = true;
}

function signOut() {
  forgetSignIn();
  sessionStorage.removeItem(WORK);
  location.hash = '';
  location.reload();
}

// The work in progress, kept for this tab: what was picked, the run's
// settings, and the report while it is small enough to keep.
const WORK = 'mrpcalc.work';
const KEPT_REPORT_ROWS = 3000;

function saveWork() {
  const work = {
    picked: [...state.picked],
    switches: Object.fromEntries(SWITCHES.map((k) => [k, $(`sw-${k}`)?.checked ?? false])),
    warehouses: $('warehouses').value, form: $('form').value, single: $('single').checked,
  };
  // A report of a few thousand rows is kept; a larger one would cost more
  // to write at every pick than running it again.
  if (state.report.length <= KEPT_REPORT_ROWS) {
    work.report = state.report;
    work.peggingId = state.peggingId;
  }
  try {
    sessionStorage.setItem(WORK, JSON.stringify(work));
  } catch (e) {
    // Over the browser's quota: the picks and settings without the report.
    delete work.report;
    delete work.pegging;
    sessionStorage.setItem(WORK, JSON.stringify(work));
  }
}

function restoreWork() {
  let work = null;
  try { work = JSON.parse(sessionStorage.getItem(WORK) || 'null'); } catch (e) { work = null; }
  if (!work) return;
  state.picked = new Set(work.picked || []);
  Object.entries(work.switches || {}).forEach(([k, on]) => { if ($(`sw-${k}`)) $(`sw-${k}`).checked = on; });
  $('warehouses').value = work.warehouses || '';
  $('form').value = work.form || $('form').value;
  $('single').checked = !!work.single;
  if (work.report) {
    state.report = work.report;
    state.peggingId = work.peggingId;
    state.pegging = [];
    renderReport();
  }
}

// 2. Pick demand.
async function loadDemand() {
  state.demand = await api('GET', '/api/open-demand');
  renderDemand();
}

const demandKey = (d) => `${d.Ftrantype}/${d.FInterID}/${d.FEntryID}`;

function renderDemand() {
  const filter = $('demand-filter').value.trim().toLowerCase();
  state.demandView = state.demand.filter((d) => !filter ||
    `${d.FBillNo} ${d.FItemNumber} ${d.FItemName}`.toLowerCase().includes(filter));
  // A page at a time; "all" picks every line the filter keeps, on every page.
  const shown = paged(state.demandView, state.demandPage || 0, 'demand-pager', (p) => { state.demandPage = p; renderDemand(); });
  state.demandPage = shown.page;
  const rows = shown.rows;
  $('demand-count').textContent = `${state.demandView.length} ${t('rows')}, ${t('picked')} ${state.picked.size}`;
  table($('demand'), rows, ['FBillNo', 'FEntryID', 'FItemNumber', 'FItemName', 'FQty', 'FUnitName', 'FDate', 'FPurchasePlanBillNo'], {
    labels: { FPurchasePlanBillNo: 'plannedIn' },
    // A line a plan covers already is marked, and "all" leaves it out.
    rowClass: (d) => (d.FPurchasePlanBillNo ? 'planned' : ''),
    lead: (d) => `<input type="checkbox" class="pick" data-key="${demandKey(d)}" ${state.picked.has(demandKey(d)) ? 'checked' : ''}>`,
  });
  // "All" shows as ticked when every line in view is picked.
  const allPicked = state.demandView.length > 0 && state.demandView.every((d) => state.picked.has(demandKey(d)));
  const all = $('demand').querySelector('thead th');
  if (all) all.innerHTML = `<input type="checkbox" id="pick-all" ${allPicked ? 'checked' : ''}>`;
}

function pickedDemand() {
  return state.demand.filter((d) => state.picked.has(demandKey(d)));
}

async function showStock() {
  const picks = pickedDemand();
  if (!picks.length) throw new Error(t('noneChosen'));
  const answer = await call('MrpDataServer', 'GetSelectData', [
    picks.map((d) => ({ Ftrantype: d.Ftrantype, FinterID: d.FInterID, FEntryID: d.FEntryID })),
    $('warehouses').value, $('net').checked]);
  table($('stock'), answer.result || [], ['FTranType', 'FBillNO', 'FItemNumber', 'FItemName', 'FBSUnitName', 'FAllStockQty', 'FActualQty', 'FQty']);
  say('pick-msg', `${t('picked')} ${picks.length}`);
}

// 3. Run MRP.
const SWITCHES = ['NowStock', 'SaveStock', 'Moving', 'UnSale', 'Producing', 'Produc', 'MidStockQty', 'Virtual'];

function renderSwitches() {
  const on = new Set(SWITCHES.filter((k) => $(`sw-${k}`)?.checked ?? ['NowStock', 'SaveStock', 'Moving', 'Produc'].includes(k)));
  $('switches').innerHTML = SWITCHES.map((k) =>
    `<label><input type="checkbox" id="sw-${k}" ${on.has(k) ? 'checked' : ''}> ${t(k)}</label>`).join('');
}

async function runMrp() {
  const picks = pickedDemand();
  if (!picks.length) throw new Error(t('noneChosen'));
  // Exactly the lines picked, not their whole bills.
  const lines = picks.map((d) => ({ type: d.Ftrantype, inter_id: d.FInterID, entry_id: d.FEntryID || 0 }));
  const switches = {};
  SWITCHES.forEach((k) => { switches[k] = $(`sw-${k}`).checked; });
  // The compact form: names once, rows as arrays (a large report is a
  // fraction of the size), turned into rows here.
  // The pegging stays with the service, a row's asked for when it is chosen.
  const answer = await api('POST', '/api/report', {
    lines, switches, warehouses: $('warehouses').value, form: Number($('form').value),
    single_level: $('single').checked, compact: true, pegging: 'by_row',
  });
  state.report = rowsOf(answer.report);
  state.peggingId = answer.pegging_id;
  state.pegging = [];  // by row, as fetched
  state.supplierCodes = new Map();
  state.notBuying = new Set();
  state.toBuyQty = new Map();
  state.toBuyDate = new Map();
  $('tobuy').innerHTML = '';  // the list of the report before
  state.page = 0;
  state.chosenRow = -1;
  renderReport();
  saveWork();
  const messages = answer.messages.length ? ' ' + answer.messages.join(' ') : '';
  say('run-msg', `${t('reportDone')}${state.report.length} ${t('rows')}${messages}`);
  location.hash = '#review';
}

// The report as the page shows it, for a file: the rows the filter keeps, in
// the order shown, under the page's column titles, figures as numbers.
function shownReport() {
  return asShown(state.reportView.map((i) => state.report[i]), REPORT_COLUMNS, REPORT_LABELS);
}

// Rows for a file as a table shows them: its columns under its titles,
// states and classes in words, dates as days, figures as numbers.
const IN_WORDS = new Set(['FItemProp', 'FClosed', 'FDate', 'Fdate', 'FFinishDate', 'FVDate']);
function asShown(rows, columns, labels = {}) {
  return rows.map((r) => {
    const out = {};
    columns.forEach((c) => { out[t(labels[c] || c)] = IN_WORDS.has(c) ? fmt(r[c], c, r) : r[c]; });
    return out;
  });
}

function rowsOf(table) {
  const { columns, rows } = table;
  return rows.map((values) => {
    const row = {};
    for (let k = 0; k < columns.length; ++k) row[columns[k]] = values[k];
    return row;
  });
}

// 4. Review: sort, filter, pages of 100 rows, pegging of a row.
// The report's arithmetic, left to right: gross need, less stock on hand,
// plus safety stock, less what is on order, plus production in progress,
// less what was issued and made parts in stock, gives the suggestion.
const REPORT_COLUMNS = ['FItemNumber', 'FItemName', 'FAuxProp', 'FUnitName', 'FNeedQty', 'FCurrentQty',
  'FSaveQty', 'FMovingQty', 'FProducingQty', 'FProducQty', 'FMidStockQty', 'FQty', 'FSupplyNumber',
  'FItemProp', 'FDate'];
const REPORT_LABELS = { FQty: 'suggestion' };

function renderReport() {
  const filter = $('report-filter').value.trim().toLowerCase();
  const actOnly = $('act-only').checked;
  const cls = $('class-filter').value;  // '' all, '1' '2' '3', 'other'
  let view = state.report.map((r, i) => i).filter((i) => {
    const r = state.report[i];
    if (actOnly && !(r.FQty > 0)) return false;
    if (cls && (cls === 'other' ? [1, 2, 3].includes(r.FItemPropID) : String(r.FItemPropID) !== cls)) return false;
    if (!filter) return true;
    return `${r.FItemNumber} ${r.FItemName} ${r.FSupplyNumber}`.toLowerCase().includes(filter);
  });
  if (state.sortKey) {
    const k = state.sortKey;
    const sign = state.sortUp ? 1 : -1;
    view.sort((a, b) => {
      const x = state.report[a][k], y = state.report[b][k];
      if (x === y) return a - b;
      if (x === null || x === undefined) return -sign;
      if (y === null || y === undefined) return sign;
      return (x < y ? -1 : 1) * sign;
    });
  }
  state.reportView = view;
  const pages = Math.max(1, Math.ceil(view.length / PAGE));
  state.page = Math.min(state.page, pages - 1);
  const shown = view.slice(state.page * PAGE, state.page * PAGE + PAGE);
  table($('report'), shown.map((i) => state.report[i]), REPORT_COLUMNS, {
    sortable: true,
    focusable: true,
    labels: REPORT_LABELS,
    index: (r, j) => shown[j],
    // A row to buy for stands out; so does stock below zero.
    rowClass: (r, j) => [shown[j] === state.chosenRow ? 'chosen' : '', r.FQty > 0 ? 'shortage' : ''].join(' ').trim(),
    cellClass: (r, c) => {
      if (c === 'FCurrentQty' && r[c] < 0) return 'negative';
      return c === 'FQty' && r[c] > 0 ? 'to-buy' : '';
    },
  });
  $('report-count').textContent = `${view.length} ${t('rows')}`;
  renderPager($('report-pager'), state.page, pages, (p) => { state.page = p; renderReport(); });
}

// The demand lines behind the chosen row, beside it: which document, line,
// product and date, and the row's share; sorted by number, not as text.
// A row's pegging, asked of the service the first time the row is chosen.
async function loadPegging(row) {
  if (state.pegging[row] || !state.peggingId) return;
  state.pegging[row] = rowsOf(await api('GET', `/api/pegging/${state.peggingId}/${row}`));
}

function renderPegging() {
  const pegs = (state.chosenRow >= 0 ? state.pegging[state.chosenRow] || [] : []).map((p) => {
    const d = state.demand.find((x) => x.Ftrantype === p.FTranType && x.FInterID === p.FInterID &&
      (x.FEntryID || 0) === (p.FEntryID || 0));
    return {
      kind: p.FTranType, FBillNo: p.FBillNo, FEntryID: p.FEntryID,
      product: d ? `${d.FItemNumber} ${d.FItemName}` : '', neededOn: d ? d.FDate : '', FQty: p.FQty,
    };
  });
  const k = state.pegSort || 'FQty';
  pegs.sort((a, b) => (typeof a[k] === 'number' && typeof b[k] === 'number' ? b[k] - a[k] : String(a[k]).localeCompare(String(b[k]))));
  table($('pegging'), pegs, ['kind', 'FBillNo', 'FEntryID', 'product', 'neededOn', 'FQty']);
  if (state.chosenRow >= 0) {
    const r = state.report[state.chosenRow];
    say('review-msg', `${r.FItemNumber} ${r.FItemName}: ${fmt(r.FNeedQty, 'FNeedQty', r)}`);
  }
}

// 5. Confirm: the lines to buy, priced; credit; orders or a plan.
const MADE = new Set([2, 3]);  // assembled, self-made: not bought

function toBuy() {
  return state.report.map((r, i) => [r, i]).filter(([r]) => r.FQty > 0 && !MADE.has(r.FItemPropID));
}

// What the planner set on the confirmation list, kept before it is drawn
// again: the lines not to buy and the codes typed.
function rememberToBuy() {
  document.querySelectorAll('#tobuy input.buy').forEach((box) => {
    if (box.checked) state.notBuying.delete(Number(box.dataset.i)); else state.notBuying.add(Number(box.dataset.i));
  });
  document.querySelectorAll('#tobuy input.supplier').forEach((input) => {
    state.supplierCodes.set(Number(input.dataset.i), input.value.trim());
  });
  document.querySelectorAll('#tobuy input.qty').forEach((input) => {
    state.toBuyQty.set(Number(input.dataset.i), input.value.trim());
  });
  document.querySelectorAll('#tobuy input.date').forEach((input) => {
    state.toBuyDate.set(Number(input.dataset.i), input.value);
  });
}

function renderToBuy() {
  rememberToBuy();
  const shown = paged(toBuy(), state.toBuyPage || 0, 'tobuy-pager', (p) => { rememberToBuy(); state.toBuyPage = p; renderToBuy(); });
  state.toBuyPage = shown.page;
  const rows = shown.rows;
  $('tobuy').innerHTML = '<thead><tr><th></th><th>' + ['FItemNumber', 'FItemName', 'FAuxProp', 'FQty', 'FDate', 'FSupplyNumber'].map(t).join('</th><th>') +
    '</th></tr></thead><tbody>' + rows.map(([r, i]) =>
    `<tr><td><input type="checkbox" class="buy" data-i="${i}" ${state.notBuying.has(i) ? '' : 'checked'}></td><td>${escapeHtml(fmt(r.FItemNumber))}</td><td>${escapeHtml(fmt(r.FItemName))}</td>` +
    `<td>${escapeHtml(fmt(r.FAuxProp))}</td>` +
    `<td><input class="qty" type="number" min="0" step="any" data-i="${i}" aria-label="${t('FQty')} ${escapeHtml(fmt(r.FItemNumber))}" ` +
    `value="${escapeHtml(state.toBuyQty.get(i) ?? String(r.FQty))}"></td>` +
    `<td><input class="date" type="date" data-i="${i}" aria-label="${t('FDate')} ${escapeHtml(fmt(r.FItemNumber))}" ` +
    `value="${escapeHtml(state.toBuyDate.get(i) ?? fmt(r.FDate))}"></td>` +
    `<td><input class="supplier" data-i="${i}" aria-label="${t('FSupplyNumber')} ${escapeHtml(fmt(r.FItemNumber))}" ` +
    `value="${escapeHtml(state.supplierCodes.get(i) ?? r.FSupplyNumber ?? '')}"></td></tr>`).join('') + '</tbody>';
  document.querySelectorAll('#tobuy input.supplier').forEach(markSupplier);
}

// A supplier code typed on the confirmation: kept when the page is drawn
// again, and looked up at once, an unknown one marked where it was typed.
async function checkSupplier(input) {
  const code = input.value.trim();
  state.supplierCodes.set(Number(input.dataset.i), code);
  await lookUpSupplier(code);
  markSupplier(input);
}

// A code's supplier name, asked of the service once per code.
async function lookUpSupplier(code) {
  if (!code || state.supplierNames.has(code)) return;
  try {
    const answer = await call('MrpDataServer', 'GetSupplierNameByNumber', [code]);
    state.supplierNames.set(code, answer.result);
  } catch (e) {
    state.supplierNames.set(code, null);
  }
}

function markSupplier(input) {
  const code = input.value.trim();
  const name = state.supplierNames.get(code);
  input.classList.toggle('invalid', !!code && name === null);
  input.title = name || '';
}

// The lines to buy, on every page of the list, with their suppliers.
function chosenToBuy() {
  rememberToBuy();
  const out = toBuy().filter(([, i]) => !state.notBuying.has(i)).map(([r, i]) => {
    // The quantity and date the planner set, checked here.
    const qty = Number(state.toBuyQty.get(i) ?? r.FQty);
    if (!(qty > 0)) throw new Error(`${r.FItemNumber}: ${t('badQty')}${state.toBuyQty.get(i)}`);
    const day = state.toBuyDate.get(i) ?? fmt(r.FDate);
    if (!/^\d{4}-\d\d-\d\d$/.test(day)) throw new Error(`${r.FItemNumber}: ${t('badDate')}${day}`);
    return { ...r, FQty: qty, FDate: `${day} 00:00:00`, FSupplyNumber: state.supplierCodes.get(i) ?? r.FSupplyNumber ?? '' };
  });
  if (!out.length) throw new Error(t('noneChosen'));
  return out;
}

const PRICED_COLUMNS = ['FItemNumber', 'FItemName', 'FSupplyNumber', 'FUnitName', 'FQty', 'FPrice', 'amount', 'FTaxRate', 'Fdate'];

// The priced lines with each line's amount, lines that cannot be ordered
// marked, and the total per supplier under them.
function renderPriced() {
  const rows = state.priced.map((l) => ({ ...l, amount: Number(l.FQty || 0) * Number(l.FPrice || 0) }));
  const shown = paged(rows, state.pricedPage || 0, 'priced-pager', (p) => { state.pricedPage = p; renderPriced(); });
  state.pricedPage = shown.page;
  table($('priced'), shown.rows, PRICED_COLUMNS, { rowClass: (r) => (lacksSupplierOrPrice(r) ? 'flagged' : '') });
  const totals = new Map();
  rows.forEach((r) => totals.set(r.FSupplyNumber || '?', (totals.get(r.FSupplyNumber || '?') || 0) + r.amount));
  $('priced-totals').textContent = [...totals].map(([s, v]) => `${s} ${t('total')} ${amount(v)}`).join('; ');
  updateActions();
}

async function confirmLines() {
  const lines = chosenToBuy();
  for (const code of new Set(lines.map((l) => l.FSupplyNumber))) await lookUpSupplier(code);
  document.querySelectorAll('#tobuy input.supplier').forEach(markSupplier);
  const unknown = [...new Set(lines.map((l) => l.FSupplyNumber).filter((c) => c && state.supplierNames.get(c) === null))];
  if (unknown.length) throw new Error(t('unknownSupplier') + unknown.join(', '));
  const answer = await call('MrpDataServer', 'GetMrpConfirmData', [lines]);
  state.priced = answer.result;
  state.pricedDone = null;  // newly priced lines may be bought
  renderPriced();
  const flagged = state.priced.filter(lacksSupplierOrPrice);
  if (flagged.length) {
    say('confirm-msg', `${flagged.length} ${t('flagged')}${flagged.map((l) => l.FItemNumber).join(', ')}`, 'error');
  } else {
    say('confirm-msg', `${state.priced.length} ${t('rows')}`);
  }
}

const pricedAsShown = () => asShown(state.priced.map((l) => ({ ...l, amount: Number(l.FQty || 0) * Number(l.FPrice || 0) })), PRICED_COLUMNS);

const lacksSupplierOrPrice = (l) => l.FSupplyID === null || l.FSupplyID === undefined || !(l.FPrice > 0);

async function checkCredit() {
  if (!state.priced.length) throw new Error(t('noneChosen'));
  const lines = state.priced.map((l) => ({ ...l, FPushQty: l.FQty }));
  const answer = await call('MrpDataServer', 'CheckCreditDegrees', [lines, '', '']);
  if (answer.byref.strCheckType !== '1') say('order-msg', t('creditOff'));
  else if (answer.result) say('order-msg', t('creditOk'));
  else say('order-msg', t('creditOver') + answer.byref.SupplyName, 'error');
}

function today() {
  return new Date().toISOString().slice(0, 10);
}

async function makeOrders() {
  if (!state.priced.length) throw new Error(t('noneChosen'));
  const flagged = state.priced.filter(lacksSupplierOrPrice);
  if (flagged.length) throw new Error(`${flagged.length} ${t('flagged')}${flagged.map((l) => l.FItemNumber).join(', ')}`);
  refuseTwice();
  const summary = perSupplier(state.priced, (l) => l.FSupplyNumber || l.FSupplyID,
    (l) => Number(l.FQty || 0) * Number(l.FPrice || 0));
  if (!ask(t('askOrders') + '\n' + summary)) return;
  const answer = await write('MrpDataServer', 'MakePOOrderBill', [state.priced, state.me.user, today()]);
  const orders = (answer.result || []).map((o) => `${o.FBillNO} (${o.FSupplyName})`).join(', ');
  state.pricedDone = t('alreadyOrdered') + orders;
  say('order-msg', t('ordersMade') + orders);
}

// Lines ordered or planned once are not bought again unless the planner
// prices them again.
function refuseTwice() {
  if (state.pricedDone) throw new Error(`${state.pricedDone} ${t('confirmAgain')}`);
}

async function savePlan() {
  if (!pickedDemand().length || !state.priced.length) throw new Error(t('noneChosen'));
  // The lines priced on the page, as the plan takes MRP lines: the plan
  // and the orders buy the same lines from the same suppliers.
  const lines = state.priced.map((l) => ({
    FBomItemID: l.FItemID, FItemNumber: l.FItemNumber, FItemName: l.FItemName, FItemModel: l.FItemModel,
    FAuxPropID: l.FAuxPropID, FAuxProp: l.FAuxPropName, FSupplyNumber: l.FSupplyNumber, FSupplyName: l.FSupplyName,
    FUnitID: l.FUnitID, FUnitName: l.FUnitName, FQty: l.FQty, FMemo: l.FNote, FDate: l.Fdate,
  }));
  const sources = pickedDemand().map((d) => ({
    Ftrantype: d.Ftrantype, FBillNo: d.FBillNo, FInterID: d.FInterID, FEntryID: d.FEntryID, FQty: d.FQty,
  }));
  refuseTwice();
  const answer = await write('PurchasePlanUpdate', 'UpdatePurchasePlan', [sources, lines, state.me.user]);
  state.pricedDone = t('alreadyPlanned') + answer.result;
  state.demand = [];  // its lines now name the plan: read again when shown
  say('order-msg', t('planSaved') + answer.result);
  $('plan-no').value = '';
}

// 8. Time-phased plan: items with their exceptions, an item's weeks and
// orders, an order's reasons and pegging, planned purchases by supplier.
const PH_FILTERS = [['', 'exAll'], ['FLate', 'exLate'], ['FShortage', 'exShortage'],
  ['FBelowSafety', 'exSafety'], ['FNoSupplier', 'exNoSupplier'], ['FActions', 'exAction']];
const PH_ITEM_COLUMNS = ['FItemNumber', 'FItemName', 'FKind', 'FSupplyNumber', 'FOnHand', 'FSafety',
  'FOrders', 'FQty', 'FLate', 'FActions'];

function renderPhasedFilter() {
  const el = $('ph-filter');
  const chosen = el.value;
  el.innerHTML = PH_FILTERS.map(([v, k]) => `<option value="${v}" ${v === chosen ? 'selected' : ''}>${t(k)}</option>`).join('');
}

async function runPhased() {
  const picks = pickedDemand();
  const lines = picks.map((d) => ({ type: d.Ftrantype, inter_id: d.FInterID, entry_id: d.FEntryID || 0 }));
  const switches = {};
  SWITCHES.forEach((k) => { switches[k] = $(`sw-${k}`).checked; });
  const body = { lines, switches, warehouses: $('warehouses').value, save: $('ph-save').checked };
  if ($('ph-today').value) body.today = $('ph-today').value;
  const answer = await api('POST', '/api/phased', body);
  state.phased = {
    id: answer.plan_id, today: answer.today, items: rowsOf(answer.items),
    suppliers: rowsOf(answer.suppliers), actions: rowsOf(answer.actions),
  };
  state.phPage = 0;
  state.phItem = null;
  renderPhased();
  updateActions();
  const run = answer.run_id ? t('phRun') + answer.run_id : '';
  if (answer.run_id) await loadRuns();
  const orders = state.phased.items.reduce((n, i) => n + Number(i.FOrders), 0);
  say('phased-msg', `${t('phDone')}${orders} ${t('orders')}${run}`);
}

function phasedItems() {
  const p = state.phased;
  if (!p) return [];
  const key = $('ph-filter').value, text = $('ph-text').value.trim().toLowerCase();
  return p.items.filter((i) => (!key || Number(i[key]) > 0) &&
    (!text || `${i.FItemNumber} ${i.FItemName}`.toLowerCase().includes(text)));
}

function renderPhased() {
  renderPhasedFilter();
  const p = state.phased;
  if (!p) return;
  const list = phasedItems();
  const page = paged(list, state.phPage || 0, 'ph-pager', (n) => { state.phPage = n; renderPhased(); });
  $('ph-count').textContent = `${list.length} ${t('items')}`;
  table($('ph-items'), page.rows, PH_ITEM_COLUMNS, {
    focusable: true, index: (r) => r.FItemID,
    rowClass: (r) => [Number(r.FLate) ? 'late' : '', r.FItemID === state.phItem ? 'chosen' : ''].join(' '),
  });
  renderPhasedSuppliers();
}

async function showPhasedItem(item) {
  const p = state.phased;
  state.phItem = item;
  const row = p.items.find((i) => i.FItemID === item);
  $('ph-item-title').textContent = row ? `${row.FItemNumber} ${row.FItemName}` : '';
  if (row) await showParams(row.FItemNumber);
  const weeks = rowsOf(await api('GET', `/api/phased/${p.id}/buckets?size=week&item=${item}`));
  // A week's columns across, as planners read the record.
  const figures = ['FGross', 'FScheduled', 'FProjected', 'FNet', 'FPlannedReceipts', 'FPlannedReleases'];
  const grid = figures.map((f) => {
    const r = { figure: t(f) };
    weeks.forEach((w) => { r[w.FFrom.slice(5)] = w[f]; });
    return r;
  });
  table($('ph-buckets'), grid, ['figure', ...weeks.map((w) => w.FFrom.slice(5))]);
  const orders = rowsOf(await api('GET', `/api/phased/${p.id}/orders?item=${item}`));
  table($('ph-orders'), orders, ['FQty', 'FDue', 'FRelease', 'FLate', 'FReasons'], {
    focusable: true, index: (o) => o.FOrder, rowClass: (o) => (Number(o.FLate) ? 'late' : ''),
  });
  $('ph-reasons').innerHTML = '';
  $('ph-pegs').innerHTML = '';
  renderPhased();
}

async function showPhasedOrder(n) {
  const answer = await api('GET', `/api/phased/${state.phased.id}/order/${n}`);
  $('ph-reasons').innerHTML = answer.reasons.map((r) => `<li>${escapeHtml(r)}</li>`).join('');
  table($('ph-pegs'), rowsOf(answer.pegs), ['FSource', 'FDate', 'FQty']);
}

// An item's planning parameters, shown with its record and saved whole
// (a figure left empty is 0, which changes nothing).
const PARAM_LABELS = {
  lead_time: 'pLead', make_time: 'pMake', make_time_per_unit: 'pPerUnit', safety: 'pSafety',
  safety_days: 'pSafetyDays', min: 'pMin', multiple: 'pMultiple', max: 'pMax', period: 'pPeriod', fence: 'pFence',
};
const PARAM_FIELDS = Object.keys(PARAM_LABELS);

async function showParams(number) {
  const rows = await api('GET', `/api/phased/params?item=${encodeURIComponent(number)}`);
  const own = rows.find((r) => r.supplier === 0) || {};
  const form = $('ph-params');
  PARAM_FIELDS.forEach((f) => { form.elements[f].value = own[f] ?? 0; });
  form.dataset.item = number;
  form.hidden = false;
}

async function saveParams() {
  const form = $('ph-params');
  const body = { item: form.dataset.item };
  for (const f of PARAM_FIELDS) {
    const v = form.elements[f].value === '' ? 0 : Number(form.elements[f].value);
    if (!(v >= 0)) throw new Error(`${t(PARAM_LABELS[f])} ≥ 0`);
    body[f] = v;
  }
  await api('PUT', '/api/phased/params', body);
  say('ph-params-msg', t('paramsSaved') + form.dataset.item);
}

// The working calendar: weekdays ticked are worked; holidays by day.
async function loadCalendar() {
  renderCalendar(await api('GET', '/api/phased/calendar'));
}

function renderCalendar(calendar) {
  state.calendar = calendar;
  $('ph-weekdays').innerHTML = t('weekdays').map((d, i) =>
    `<label><input type="checkbox" class="weekday" data-i="${i}" ${calendar.working[i] ? 'checked' : ''}> ${d}</label>`).join(' ');
  $('ph-holidays').textContent = calendar.holidays.length ? t('holidays') + calendar.holidays.join(', ') : t('noHolidays');
}

async function changeCalendar(body) {
  renderCalendar(await api('PUT', '/api/phased/calendar', body));
  say('ph-calendar-msg', t('calendarSaved'));
}

function holidayChosen() {
  const day = $('ph-holiday').value;
  if (!day) throw new Error(t('chooseDay'));
  return day;
}

// Saved runs, and what changed from one to another.
async function loadRuns() {
  const runs = rowsOf(await api('GET', '/api/phased/runs'));
  const options = runs.map((r) => `<option value="${r.FRunID}">${r.FRunID} (${escapeHtml(r.FCreated)})</option>`).join('');
  $('ph-before').innerHTML = options;
  $('ph-after').innerHTML = options;
  if (runs.length > 1) $('ph-before').selectedIndex = 1;  // the one before the newest
}

async function compareRuns() {
  const before = $('ph-before').value, after = $('ph-after').value;
  if (!before || !after) throw new Error(t('twoRuns'));
  const changes = rowsOf(await api('GET', `/api/phased/diff?before=${before}&after=${after}`));
  table($('ph-changes'), changes.map((c) => ({ ...c, FKind: t(c.FKind) })),
    ['FKind', 'FItemNumber', 'FDueBefore', 'FDueAfter', 'FQtyBefore', 'FQtyAfter']);
  say('phased-msg', changes.length ? `${changes.length} ${t('rows')}` : t('noChange'));
}

function renderPhasedSuppliers() {
  const rows = (state.phased?.suppliers || []).map((g) => ({ ...g, FSupplyNumber: g.FSupplyNumber || '—' }));
  table($('ph-suppliers'), rows, ['FSupplyNumber', 'FLines', 'FQty', 'FRelease', 'FLate']);
}

// The planned purchases saved through the plan stage, due on their due
// days, each with its release day in the memo; the picked demand is the
// plan's source.
async function phasedToPlan() {
  const p = state.phased;
  if (!p) throw new Error(t('noneChosen'));
  if (!pickedDemand().length) throw new Error(t('noneChosen'));
  // A plan's purchases are planned once: a new run plans anew.
  if (p.planned) throw new Error(`${t('alreadyPlanned')}${p.planned} ${t('runAgain')}`);
  const numbers = new Map(p.suppliers.map((g) => [g.FSupplyID, g.FSupplyNumber]));
  const buys = rowsOf(await api('GET', `/api/phased/${p.id}/orders?kind=purchase`))
    .map((o) => ({ ...o, item: { FSupplyNumber: numbers.get(o.FSupplyID) || '' } }))
    .filter((o) => o.item.FSupplyNumber);
  if (!buys.length) throw new Error(t('phNoPurchase'));
  const summary = perSupplier(buys, (o) => o.item.FSupplyNumber, (o) => Number(o.FQty));
  if (!ask(t('askPhPlan') + '\n' + summary)) return;
  const lines = buys.map((o) => ({
    FBomItemID: o.FItemID, FItemNumber: o.FItemNumber, FItemName: o.FItemName, FItemModel: '',
    FAuxPropID: 0, FAuxProp: '', FSupplyNumber: o.item.FSupplyNumber, FSupplyName: '',
    FUnitID: o.FUnitID, FUnitName: '', FQty: o.FQty, FMemo: `release ${o.FRelease}`, FDate: o.FDue,
  }));
  const sources = pickedDemand().map((d) => ({
    Ftrantype: d.Ftrantype, FBillNo: d.FBillNo, FInterID: d.FInterID, FEntryID: d.FEntryID, FQty: d.FQty,
  }));
  const answer = await write('PurchasePlanUpdate', 'UpdatePurchasePlan', [sources, lines, state.me.user]);
  p.planned = answer.result;
  updateActions();
  state.demand = [];
  say('phased-msg', t('planSaved') + answer.result);
}

// 6. Plans.
const PLAN_COLUMNS = ['FBillNo', 'FKey', 'FItemNumber', 'FItemName', 'FSupplyNumber', 'FQty', 'FPushQty',
  'FPurchaseFinishQty', 'FPrice', 'FClosed', 'FFinishDate', 'FSourceNo'];

function renderPlans() {
  table($('plan-lines'), state.planLines, PLAN_COLUMNS, {
    lead: (r, i) => `<input type="checkbox" class="plan-line" data-i="${i}" aria-label="${escapeHtml(planLineName(r.FInterID, r.FEntryID))}">`,
  });
  updateActions();
}

async function loadPlans() {
  const filter = {};
  if ($('plan-from').value) filter.BDate = $('plan-from').value;
  if ($('plan-to').value) filter.EDate = $('plan-to').value;
  if ($('plan-item-from').value) filter.BItemNumber = $('plan-item-from').value;
  if ($('plan-item-to').value) filter.EItemNumber = $('plan-item-to').value;
  if ($('plan-open').checked) filter.Closed = 1;
  const answer = await call('PurchasePlanInfo', 'GetRptData', [filter, state.me.user, $('plan-no').value.trim()]);
  state.planLines = answer.result || [];
  renderPlans();
  say('plans-msg', `${state.planLines.length} ${t('rows')}`);
}

function chosenPlanLines() {
  const out = [...document.querySelectorAll('#plan-lines input.plan-line:checked')].map((b) => state.planLines[Number(b.dataset.i)]);
  if (!out.length) throw new Error(t('noneChosen'));
  return out;
}

async function pushPlans() {
  const chosen = chosenPlanLines();
  // A closed line, or one with nothing left to push, would make an empty order.
  const closed = chosen.filter((l) => l.FClosed !== 0);
  if (closed.length) throw new Error(t('notOpen') + closed.map((l) => planLineName(l.FInterID, l.FEntryID)).join(', '));
  const empty = chosen.filter((l) => !(l.FPushQty > 0));
  if (empty.length) throw new Error(t('nothingToPush') + empty.map((l) => planLineName(l.FInterID, l.FEntryID)).join(', '));
  const lines = chosen.map((l) => ({
    FKey: l.FKey, FSupplyID: l.FSupplyID, FItemID: l.FItemID, FAuxPropID: l.FAuxPropID, FUnitID: l.FUnitID,
    FPushQty: l.FPushQty, FPrice: l.FPrice, FDiscountRate: l.FDiscountRate, FTaxRate: l.FTaxRate,
    FMemo: l.FMemo, FFinishDate: l.FFinishDate, FBillNo: l.FBillNo, FIsMerge: 0, FStartKey: '', FEndKey: '',
    FMergeSumQty: 0,
    EntryDataVct: [{ FKey: l.FKey, FInterID: l.FInterID, FEntryID: l.FEntryID, FItemID: l.FItemID, FBillNo: l.FBillNo, FPushQty: l.FPushQty }],
  }));
  const summary = perSupplier(lines, (l) => {
    const source = state.planLines.find((p) => p.FKey === l.FKey);
    return (source && source.FSupplyNumber) || l.FSupplyID;
  }, (l) => Number(l.FPushQty || 0) * Number(l.FPrice || 0));
  if (!ask(t('askPush') + '\n' + summary)) return;
  const answer = await write('PurchasePlanUpdate', 'PushBill', [lines, state.me.user, '', today()]);
  const orders = (answer.result || []).map((o) => o.FBillNO).join(', ');
  await loadPlans();
  say('plans-msg', t('pushed') + orders);
}

// "CJ20261124001 line 2", for a plan line's interior id and line.
function planLineName(interId, entryId) {
  const line = state.planLines.find((l) => l.FInterID === interId && l.FEntryID === entryId);
  return `${line ? line.FBillNo : interId} ${t('line')} ${entryId}`;
}

async function closePlans(reopen) {
  const rows = chosenPlanLines().map((l) => ({ FInterID: l.FInterID, FEntryID: l.FEntryID }));
  const answer = await write('PurchasePlanUpdate', reopen ? 'UnClosePurchasePlan' : 'ClosePurchasePlan', [rows]);
  const text = answer.result.map((r) => `${planLineName(r.FInterID, r.FEntryID)}: ` +
    `${r.Succeed ? t(reopen ? 'reopenedNow' : 'closedNow') : t('refused')} ${r.Error || ''}`.trim()).join('; ');
  await loadPlans();
  say('plans-msg', text, answer.result.every((r) => r.Succeed) ? 'ok' : 'error');
}

async function deletePlans() {
  const plans = new Map();
  chosenPlanLines().forEach((l) => plans.set(l.FBillNo, { FInterID: l.FInterID, FBillNo: l.FBillNo }));
  if (!ask(t('askDelete') + [...plans.keys()].join(', '))) return;
  const answer = await write('PurchasePlanUpdate', 'DeletePurchasePlan', [[...plans.values()]]);
  const text = answer.result.map((r) => `${r.FBillNo}: ${r.Succeed ? t('done') : r.Error}`).join('; ');
  await loadPlans();
  say('plans-msg', text, answer.result.every((r) => r.Succeed) ? 'ok' : 'error');
}

// 7. Stock scope.
let scopeStocks = [];

async function loadScope() {
  const stored = await call('MrpDataServer', 'GetStockInfo', [state.me.user, '', '', '', 1, '']);
  let scope = stored.byref;
  let label = t('scopeNow');
  if (!stored.result) {
    const all = await call('MrpDataServer', 'ReturnEmptyStockInfo', [state.me.user, '', '', '']);
    scope = all.byref;
    label = t('scopeAll');
  }
  $('scope-now').textContent = `${label}${scope.sStockStr} [${scope.sStockKey}]`;
  const chosen = new Set(String(scope.sStockInfo || '').split(',').filter(Boolean));
  const list = await call('MrpDataServer', 'GetItemStock', [5, state.me.user, false]);
  scopeStocks = list.result || [];
  table($('scope-stocks'), scopeStocks, ['FNumber', 'FName'], {
    lead: (r, i) => `<input type="checkbox" class="stock" data-i="${i}" ${stored.result && chosen.has(String(r.FItemID)) ? 'checked' : ''}>`,
  });
}

async function saveScope() {
  const chosen = [...document.querySelectorAll('#scope-stocks input.stock:checked')].map((b) => scopeStocks[Number(b.dataset.i)]);
  if (!chosen.length) throw new Error(t('noneChosen'));
  const ids = new Set(chosen.map((s) => s.FItemID));
  scopeStocks.forEach((s) => { if (ids.has(s.FParentID)) ids.add(s.FItemID); });
  const all = scopeStocks.filter((s) => ids.has(s.FItemID));
  const key = all.filter((s) => s.fDetail === 1).map((s) => s.FItemID).join(',');
  const info = all.map((s) => s.FItemID).join(',');
  const text = chosen.map((s) => `${s.FNumber} - ${s.FName}`).join(',');
  await write('MrpDataServer', 'UpdateStockInfo', [state.me.user, text, key, info, 1, '']);
  say('scope-msg', t('scopeSaved'));
  $('warehouses').value = '';  // the new scope's warehouses
  await loadScope();
  await loadRunStocks();
}

function wire() {
  $('lang').onclick = () => {
    state.lang = state.lang === 'zh' ? 'en' : 'zh';
    localStorage.setItem('mrpcalc.lang', state.lang);
    applyLanguage();
  };
  $('signin-go').onclick = guarded('signin-msg', signIn);
  $('token').onkeydown = (e) => { if (e.key === 'Enter') $('signin-go').click(); };
  $('demand-filter').oninput = renderDemand;
  $('demand').onchange = (e) => {
    if (e.target.id === 'pick-all') {
      const withPlanned = $('with-planned').checked;
      let leftOut = 0;
      state.demandView.forEach((d) => {
        if (!e.target.checked) state.picked.delete(demandKey(d));
        else if (d.FPurchasePlanBillNo && !withPlanned) ++leftOut;
        else state.picked.add(demandKey(d));
      });
      renderDemand();
      if (leftOut) {
        say('pick-msg', `${t('picked')} ${state.picked.size}; ${leftOut} ${t('plannedLeftOut')}` +
          state.demandView.filter((d) => d.FPurchasePlanBillNo).map((d) => `${d.FBillNo}/${d.FEntryID} (${d.FPurchasePlanBillNo})`).join(', '));
        saveWork();
        return;
      }
    } else if (e.target.classList.contains('pick')) {
      if (e.target.checked) state.picked.add(e.target.dataset.key); else state.picked.delete(e.target.dataset.key);
    }
    say('pick-msg', `${t('picked')} ${state.picked.size}`);
    saveWork();
  };
  $('run').onchange = (e) => {  // switches, warehouses, form, levels
    if (e.target.classList.contains('run-stock')) chooseRunStocks();
    saveWork();
  };
  $('signout').onclick = signOut;
  $('show-stock').onclick = guarded('pick-msg', showStock);
  $('run-mrp').onclick = guarded('run-msg', runMrp);
  $('ph-run').onclick = guarded('phased-msg', runPhased);
  $('ph-filter').onchange = () => { state.phPage = 0; renderPhased(); };
  $('ph-text').oninput = () => { state.phPage = 0; renderPhased(); };
  $('ph-items').onclick = (e) => {
    const tr = e.target.closest('tbody tr');
    if (tr) guarded('phased-msg', () => showPhasedItem(Number(tr.dataset.i)))();
  };
  $('ph-orders').onclick = (e) => {
    const tr = e.target.closest('tbody tr');
    if (tr) guarded('phased-msg', () => showPhasedOrder(Number(tr.dataset.i)))();
  };
  $('ph-plan').onclick = guarded('phased-msg', phasedToPlan);
  $('ph-params-save').onclick = guarded('ph-params-msg', saveParams);
  $('ph-compare').onclick = guarded('phased-msg', compareRuns);
  $('ph-week-save').onclick = guarded('ph-calendar-msg', () => changeCalendar({
    working: [...document.querySelectorAll('#ph-weekdays input.weekday')].map((b) => b.checked),
  }));
  $('ph-holiday-add').onclick = guarded('ph-calendar-msg', () => changeCalendar({ add: [holidayChosen()] }));
  $('ph-holiday-remove').onclick = guarded('ph-calendar-msg', () => changeCalendar({ remove: [holidayChosen()] }));
  $('report-filter').oninput = () => { state.page = 0; renderReport(); };
  $('act-only').onchange = () => { state.page = 0; renderReport(); };
  $('class-filter').onchange = () => { state.page = 0; renderReport(); };
  $('report').onclick = (e) => {
    const th = e.target.closest('th');
    if (th) {
      state.sortUp = state.sortKey === th.dataset.key ? !state.sortUp : true;
      state.sortKey = th.dataset.key;
      renderReport();
      return;
    }
    const tr = e.target.closest('tbody tr');
    if (!tr) return;
    state.chosenRow = Number(tr.dataset.i);
    renderReport();
    renderPegging();
    guarded('review-msg', async () => {
      const row = state.chosenRow;
      await loadPegging(row);
      if (row === state.chosenRow) renderPegging();
    })();
    const again = $('report').querySelector(`tbody tr[data-i="${state.chosenRow}"]`);
    if (again) again.focus();
  };
  $('export-report-csv').onclick = guarded('review-msg', () => download('report', 'csv', shownReport()));
  $('export-report-xlsx').onclick = guarded('review-msg', () => download('report', 'xlsx', shownReport()));
  // The keyboard: arrows move between rows, Enter shows the row's pegging.
  $('report').onkeydown = (e) => {
    const tr = e.target.closest('tbody tr');
    if (!tr) return;
    if (e.key === 'ArrowDown' || e.key === 'ArrowUp') {
      const next = e.key === 'ArrowDown' ? tr.nextElementSibling : tr.previousElementSibling;
      if (next) next.focus();
      e.preventDefault();
    } else if (e.key === 'Enter') {
      tr.click();
    }
  };
  $('pegging').onclick = (e) => {
    const th = e.target.closest('th');
    if (!th) return;
    state.pegSort = th.dataset.key;
    renderPegging();
  };
  $('confirm-lines').onclick = guarded('confirm-msg', confirmLines);
  $('tobuy').onchange = (e) => { if (e.target.classList.contains('supplier')) guarded('confirm-msg', () => checkSupplier(e.target))(); };
  $('check-credit').onclick = guarded('order-msg', checkCredit);
  $('make-orders').onclick = guarded('order-msg', makeOrders);
  $('save-plan').onclick = guarded('order-msg', savePlan);
  $('export-priced-csv').onclick = guarded('order-msg', () => download('purchase-lines', 'csv', pricedAsShown()));
  $('export-priced-xlsx').onclick = guarded('order-msg', () => download('purchase-lines', 'xlsx', pricedAsShown()));
  $('plans-load').onclick = guarded('plans-msg', loadPlans);
  $('plan-lines').onchange = updateActions;
  $('plan-push').onclick = guarded('plans-msg', pushPlans);
  $('plan-close').onclick = guarded('plans-msg', () => closePlans(false));
  $('plan-reopen').onclick = guarded('plans-msg', () => closePlans(true));
  $('plan-delete').onclick = guarded('plans-msg', deletePlans);
  $('export-plans-csv').onclick = guarded('plans-msg', () => download('plans', 'csv', asShown(state.planLines, PLAN_COLUMNS)));
  $('export-plans-xlsx').onclick = guarded('plans-msg', () => download('plans', 'xlsx', asShown(state.planLines, PLAN_COLUMNS)));
  $('scope-save').onclick = guarded('scope-msg', saveScope);
  window.onhashchange = () => show(location.hash.slice(1) || 'signin');
}

wire();
applyLanguage();
restoreWork();
say('review-msg', t('clickRow'));
state.wanted = location.hash.slice(1) || 'pick';
if (state.token) {
  $('token').value = '';
  show('signin');
  guarded('signin-msg', signIn)();
} else {
  show(location.hash.slice(1) || 'signin');  // a step asked for says to sign in first
}
