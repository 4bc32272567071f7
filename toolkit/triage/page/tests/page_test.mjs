// The triage page in a real browser. Run by scripts/page-test, which has made the pages and says which browser.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import path from "node:path";
import { after, test } from "node:test";
import { pathToFileURL } from "node:url";
import { chromium } from "playwright-core";

const browser = await chromium.launch({ executablePath: process.env.BROWSER, args: ["--no-sandbox"] });
after(() => browser.close());

const axe = readFileSync("node_modules/axe-core/axe.min.js", "utf8");
const address = (kind) => pathToFileURL(path.resolve(`${kind}.html`)).href;

/** Opens a page and notes what it should not do: requests of its own, messages, dialogues. */
async function open(kind, options = {}, hash = "") {
  const context = await browser.newContext({ viewport: { width: 1440, height: 1000 }, ...options });
  const page = await context.newPage();
  page.incidents = [];
  page.on("request", (request) => request.isNavigationRequest() || page.incidents.push(request.url()));
  page.on("console", (message) => page.incidents.push(message.text()));
  page.on("pageerror", (error) => page.incidents.push(error.message));
  page.on("dialog", (dialog) => page.incidents.push(dialog.message()) && dialog.dismiss());
  await page.goto(address(kind) + hash);
  return page;
}

async function close(page) {
  assert.deepEqual(page.incidents, []);
  await page.context().close();
}

const shown = (page) => page.locator("#groups > tbody:not([hidden])");
const column = (page, name) => page.locator(`#groups > tbody:not([hidden]) > tr > .${name}`).allInnerTexts();
const number = (text) => Number(text.replace(/,/g, ""));
const summaries = "#groups > tbody > tr > td > details > summary";

test("sorts by each column, both ways", async () => {
  const page = await open(40);
  const collator = new Intl.Collator("en", { numeric: true });
  const days = (text) => /\d{4}-\d\d-\d\d/.exec(text)[0];
  const order = {
    count: (a, b) => number(a) - number(b),
    share: (a, b) => parseFloat(a) - parseFloat(b),
    signature: (a, b) => collator.compare(a, b),
    class: (a, b) => collator.compare(a, b),
    first: (a, b) => (days(a) < days(b) ? -1 : days(a) > days(b) ? 1 : 0),
    last: (a, b) => (days(a) < days(b) ? -1 : days(a) > days(b) ? 1 : 0),
    rank: (a, b) => number(a) - number(b),
  };
  const ranks = (await column(page, "rank")).sort();
  for (const [name, compare] of Object.entries(order)) {
    const directions = new Set();
    for (let click = 0; click < 2; ++click) {
      await page.click(`#groups > thead .${name} button`);
      const direction = await page.getAttribute(`#groups > thead .${name}`, "aria-sort");
      directions.add(direction);
      const texts = await column(page, name);
      const isOrdered = texts.every((text, i) => i === 0 || compare(texts[i - 1], text) * (direction === "ascending" ? 1 : -1) <= 0);
      assert.ok(isOrdered, `${name} ${direction}: ${texts}`);
      assert.deepEqual((await column(page, "rank")).sort(), ranks);
    }
    assert.equal(directions.size, 2);
    assert.equal(await page.locator("#groups [aria-sort]").count(), 1);
  }
  await close(page);
});

test("filters by text, build, system and mark, and shows all again", async () => {
  const page = await open(40);
  const all = await shown(page).count();
  const check = async (fits) => {
    await page.waitForFunction(() => document.getElementById("found").textContent !== "");
    const bodies = await page.locator("#groups > tbody").all();
    let count = 0;
    for (const body of bodies) {
      const expected = await fits(body);
      assert.equal(await body.isVisible(), expected, await body.locator(".signature").textContent());
      count += expected ? 1 : 0;
    }
    assert.ok(count > 0 && count < all, `${count} of ${all}`);
    assert.match(await page.textContent("#found"), new RegExp(`^${count} groups? of ${all}, `));
    await page.keyboard.press("Escape");
    await page.locator("#find").press("Escape");
    assert.equal(await shown(page).count(), all);
  };
  await page.keyboard.press("/");
  await page.keyboard.type("SHADOWS.cpp scene");
  await check(async (body) => {
    const text = (await body.textContent()).toLowerCase();
    return text.includes("shadows.cpp") && text.includes("scene");
  });
  await page.selectOption("#build", { label: "4.3.0" });
  await check(async (body) => (await body.locator(".where").textContent()).includes("4.3.0"));
  await page.selectOption("#system", { label: "macOS 15.1" });
  await check(async (body) => (await body.locator(".where").textContent()).includes("macOS 15.1"));
  await page.selectOption("#marked", "new");
  await check(async (body) => (await body.locator(".m.new").count()) === 1);
  await page.fill("#find", "no such thing");
  await page.waitForSelector("#none:visible");
  await page.click("#clear");
  assert.equal(await shown(page).count(), all);
  await close(page);
});

test("opens by mouse, keyboard and link", async () => {
  const page = await open(40);
  const body = (i) => page.locator("#groups > tbody").nth(i);
  const isOpen = (i) => body(i).locator("> tr > td > details").evaluate((details) => details.open);
  await body(0).locator(".class").click();
  assert.ok(await isOpen(0));
  await body(0).locator(".class").click();
  assert.ok(!(await isOpen(0)));
  await page.locator(summaries).first().focus();
  await page.keyboard.press("ArrowDown");
  await page.keyboard.press("Enter");
  assert.deepEqual([await isOpen(0), await isOpen(1), await isOpen(2)], [false, true, false]);
  const link = body(1).locator(".r a.id").first();
  const id = await link.textContent();
  // What is filtered out is shown when a link leads there.
  await page.fill("#find", await body(1).locator(".k a").textContent());
  await page.waitForFunction(() => document.querySelectorAll("#groups > tbody:not([hidden])").length === 1);
  await link.click();
  const target = page.locator(`#groups > tbody:has([id="${id}"])`);
  await target.locator("details .b").waitFor({ timeout: 5000 });
  const top = (await target.boundingBox()).y;
  const head = await page.locator("#groups > thead th.rank").boundingBox();
  assert.ok(top >= head.y + head.height - 2 && top < 700, `${top}`);
  await close(page);

  const former = (/formerly ([0-9a-f]{16})/).exec(readFileSync("40.html", "utf8"))[1];
  for (const name of [id, former]) {
    const linked = await open(40, {}, `#${name}`);
    assert.ok(await linked.locator(`[id="${name}"]`).isVisible());
    assert.equal(await linked.locator("#groups details[open] .b").count(), 1);
    await close(linked);
  }
});

test("can be read without JavaScript, and printed", async () => {
  const page = await open(40, { javaScriptEnabled: false });
  assert.ok(await page.locator("noscript p").isVisible());
  assert.equal(await page.locator("#filters").isVisible(), false);
  await page.locator(summaries).nth(3).click();
  assert.equal(await page.locator(".s .x:visible").count(), 1);
  // A sheet of paper within its margins.
  await page.emulateMedia({ media: "print" });
  await page.setViewportSize({ width: 718, height: 1000 });
  assert.ok(await page.locator("#groups .class").first().isVisible());
  await page.screenshot({ path: "print.png" });
  await close(page);
});

test("shows hostile names as text", async () => {
  const page = await open("hostile");
  await page.evaluate(() => document.querySelectorAll("details").forEach((details) => (details.open = true)));
  const hostile = "</script></style><script>document.title='taken'</script><img src=x onerror=alert(1)>\"'&amp;\\xe2\\x80\\xae\u05e9\u05dc\\x1b[2J";
  // Long names keep their start, long paths their end.
  const text = await page.evaluate(() => document.body.textContent);
  for (const name of ["title", "build", "signature", "class", "system", "function", "caller", "variant", "frame", "similar", "missing", "former"])
    assert.ok(text.includes(name + hostile.slice(0, 9)), name);
  for (const place of [".s .o", ".s .p", "section:has(h3:text-is(\"Reports\")) li"])
    assert.ok((await page.locator(place).first().textContent()).includes(hostile.slice(-20)), place);
  const template = page.locator(".s .x").first().locator(".w");
  assert.match(await template.locator("summary").textContent(), /^void base::Visitor<.{10,120}>::VisitAll\(std::vector<int> const&\)$/);
  assert.ok((await template.locator("> div").textContent()).length > 10000);
  assert.ok((await page.textContent(".s")).includes("function" + hostile));
  assert.deepEqual(
    await page.evaluate(() => ({
      strangers: document.querySelectorAll("img, iframe, object, embed, link, base, form, [style], [src]").length,
      scripts: document.scripts.length,
      links: Array.from(document.links).filter((link) => !link.getAttribute("href").startsWith("#")).length,
      wide: document.documentElement.scrollWidth - innerWidth,
      handlers: Array.from(document.querySelectorAll("*")).filter((element) =>
        element.getAttributeNames().some((name) => name.startsWith("on"))).length,
    })),
    { strangers: 0, scripts: 1, links: 0, wide: 0, handlers: 0 },
  );
  await page.screenshot({ path: "hostile.png", fullPage: true });
  await close(page);
});

test("refuses what does not belong to it", async () => {
  const page = await open(40);
  const ran = await page.evaluate(async () => {
    const script = document.createElement("script");
    script.textContent = "window.ran = true";
    const image = document.createElement("img");
    image.src = "https://example.invalid/x.png";
    document.body.append(script, image);
    await new Promise((resolve) => (image.onerror = image.onload = resolve));
    return Boolean(window.ran);
  });
  assert.equal(ran, false);
  // The browser's complaints show that the page's policy, and not chance, has stopped both.
  assert.equal(page.incidents.filter((text) => text.includes("Content Security Policy")).length, 2, page.incidents.join());
  await page.context().close();
});

test("is accessible and stays in its width, in both colour schemes", async () => {
  for (const colorScheme of ["light", "dark"]) {
    for (const [kind, width] of [[40, 1440], [40, 800], [40, 390], [0, 1440], ["hostile", 1000]]) {
      const page = await open(kind, { colorScheme, bypassCSP: true, viewport: { width, height: 1000 } });
      await page.evaluate(() => document.querySelectorAll("#groups > tbody:nth-of-type(-n+3) > tr > td > details, .numbers").forEach((details) => (details.open = true)));
      await page.screenshot({ path: `${kind}-${width}-${colorScheme}.png`, fullPage: true });
      assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), `${kind} ${width}`);
      await page.evaluate(axe);
      const { violations } = await page.evaluate(() => window.axe.run(document, { resultTypes: ["violations"] }));
      assert.deepEqual(violations.map((one) => [one.id, one.nodes.slice(0, 3).map((node) => node.html)]), [], `${kind} ${width} ${colorScheme}`);
      await close(page);
    }
  }
});

test("shows 2,000 groups and sums up the rest", async (test) => {
  const page = await open(2600);
  const [{ loadEventEnd, decodedBodySize }] = await page.evaluate(() => performance.getEntriesByType("navigation"));
  test.diagnostic(`${(decodedBodySize / 1e6).toFixed(1)} MB open in ${(loadEventEnd / 1000).toFixed(1)} s`);
  assert.equal(await shown(page).count(), 2000);
  assert.match(await page.textContent("#groups > tfoot"), /^And 600 less frequent groups with [\d,]+ reports .* All groups are in crashes\.json\.$/);
  await page.fill("#find", "DecodeStrip");
  await page.waitForFunction(() => document.getElementById("found").textContent.includes(" of 2,000"));
  await close(page);
});
