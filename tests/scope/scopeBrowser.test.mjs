// krin-scope driven through a real browser: fields picked on the page are
// plotted with the values that were published, the rates shown are the
// rates sent, and a browser that goes away costs the subscriber nothing.
import { test } from "node:test";
import assert from "node:assert/strict";
import path from "node:path";
import {
  countsOf, fieldStabilisationSample, freePort, hokuSample, launchBrowser, outputDir, pickField, pubPath, start,
  startScope, stopScope, until, upgradeStatus,
} from "./scopeProcesses.mjs";

const fieldStabilisation = "FieldStablizationTopicIn";
const hoku = "HokuTopicIn";

// With --catch-up, a publisher held up by a busy machine makes up the samples
// it owes, so that the rate sent holds on average over every few seconds.
function publish(port, topic, sample, rate, count) {
  return start(pubPath, ["--rate", String(rate), "--catch-up", "--count", String(count),
    `krin.ps://127.0.0.1:${port}`, topic, JSON.stringify(sample)]);
}

test("picked fields are plotted with the published values and the published rate", async () => {
  const [fsPort, hokuPort] = [await freePort(), await freePort()];
  const scope = await startScope([`krin.ps://127.0.0.1:${fsPort}`, fieldStabilisation,
    `krin.ps://127.0.0.1:${hokuPort}`, hoku]);
  const sentRate = 200;
  const fsPub = publish(fsPort, fieldStabilisation, fieldStabilisationSample, sentRate, 0);
  const hokuPub = publish(hokuPort, hoku, hokuSample, 50, 0);
  const browser = await launchBrowser().catch((error) => {
    fsPub.kill("SIGINT");
    hokuPub.kill("SIGINT");
    scope.kill("SIGINT");
    throw error;
  });
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    await page.goto(scope.url);
    await pickField(page, fieldStabilisation, "gp1_az");
    await pickField(page, fieldStabilisation, "gp2_az");
    await pickField(page, hoku, "coefficients[]");
    const plotted = (topicIndex, fieldPath) =>
      page.evaluate((id) => window.scope.plotted(id), `${topicIndex}/${fieldPath}`);
    await until(async () => (await plotted(0, "gp1_az")).length >= 20 && (await plotted(0, "gp2_az")).length >= 20 &&
      (await plotted(1, "coefficients[]")).length > 0, "points in all three charts");

    const gp1 = await plotted(0, "gp1_az");
    const gp2 = await plotted(0, "gp2_az");
    assert.deepEqual([...new Set(gp1)], [fieldStabilisationSample.gp1_az]);
    assert.deepEqual([...new Set(gp2)], [fieldStabilisationSample.gp2_az]);
    assert.deepEqual(await plotted(1, "coefficients[]"), hokuSample.coefficients);
    const charts = await page.evaluate(() => window.scope.state.charts.map((chart) => chart.fields));
    assert.deepEqual(charts, [["0/gp1_az", "0/gp2_az"], ["1/coefficients[]"]], "two fields share a chart");

    // The rate shown in the corner, once three seconds of samples are behind
    // it: the first one-second window began before the publisher did, so only
    // the ones after it measure the sent rate whole.
    await until(async () => {
      const samples = await page.evaluate((topic) =>
        window.scope.state.counts?.topics.find((counted) => counted.topic === topic)?.samples ?? 0,
      fieldStabilisation);
      return samples >= 3 * sentRate;
    }, "three seconds of sensor samples counted");
    // Five one-second readings in a row, and their median: a stall of the
    // busy machine moves samples from one second into the next, not away.
    const readings = [];
    await until(async () => {
      const text = await page.locator("#counts").textContent();
      const match = text.match(new RegExp(`${fieldStabilisation}\\s+([0-9.]+) Hz`));
      const rate = match ? Number(match[1]) : 0;
      if (rate !== readings[readings.length - 1]) readings.push(rate);
      return readings.length >= 5;
    }, "five rates shown for the sensor topic");
    const shownRate = [...readings].sort((a, b) => a - b)[2];
    assert.ok(Math.abs(shownRate - sentRate) <= 0.1 * sentRate,
      `rate shown ${shownRate} (median of ${readings}), sent ${sentRate}`);

    await page.screenshot({ path: path.join(outputDir, "krin-scope.png") });
    const errors = await page.evaluate(() => window.scope.state.errors);
    assert.deepEqual(errors, []);
  } finally {
    await browser.close();
    fsPub.kill("SIGINT");
    hokuPub.kill("SIGINT");
    await Promise.all([fsPub.exited, hokuPub.exited]);
    assert.equal(await stopScope(scope), 0, scope.err);
  }
});

test("a browser closed mid-stream costs the subscriber no sample", async () => {
  const port = await freePort();
  const scope = await startScope([`krin.ps://127.0.0.1:${port}`, fieldStabilisation]);
  const browser = await launchBrowser().catch((error) => {
    scope.kill("SIGINT");
    throw error;
  });
  const sent = 5000;
  let pub = null;
  try {
    const page = await browser.newPage();
    await page.goto(scope.url);
    await pickField(page, fieldStabilisation, "gp1_az");
    await pickField(page, fieldStabilisation, "gp1_cent_err[]");
    pub = publish(port, fieldStabilisation, fieldStabilisationSample, 1000, sent);
    await until(async () => (await page.evaluate(() => window.scope.plotted("0/gp1_az"))).length > 0,
      "points on the page");
    const before = await countsOf(scope);
    assert.ok(before.topics[0].samples < sent, "the browser closes while samples still come");
    await browser.close();
    assert.equal(await pub.exited, 0, pub.err);
    const counts = await until(async () => {
      const now = await countsOf(scope);
      return now.topics[0].samples >= sent ? now : null;
    }, "all samples counted by the scope");
    assert.equal(counts.topics[0].samples, sent);
    assert.equal(counts.topics[0].gaps, 0);
    assert.equal(counts.topics[0].missing, 0);
    assert.equal(counts.pages, 0, "the closed page is let go");
  } finally {
    await browser.close();
    if (pub) pub.kill("SIGINT");
    assert.equal(await stopScope(scope), 0, scope.err);
  }
});

test("bad requests of one page are refused to it alone", async () => {
  const port = await freePort();
  const scope = await startScope([`krin.ps://127.0.0.1:${port}`, fieldStabilisation], ["--max-pages", "3"]);
  const pub = publish(port, fieldStabilisation, fieldStabilisationSample, 200, 0);
  const browser = await launchBrowser().catch((error) => {
    pub.kill("SIGINT");
    scope.kill("SIGINT");
    throw error;
  });
  try {
    const page = await browser.newPage();
    await page.goto(scope.url);
    await pickField(page, fieldStabilisation, "gp1_az");
    const pointsOnPage = () => page.evaluate(() => window.scope.state.series.get("0/gp1_az")?.t.length ?? 0);
    await until(async () => (await pointsOnPage()) > 0, "points on the good page");

    // A second page's socket sends what the server must refuse.
    const refusals = await page.evaluate(async () => {
      const socket = new WebSocket(`ws://${location.host}/`);
      const answers = [];
      const next = () => new Promise((resolve) => {
        const take = (event) => {
          const message = JSON.parse(event.data);
          if (message.error) {
            socket.removeEventListener("message", take);
            resolve(message.error);
          }
        };
        socket.addEventListener("message", take);
      });
      await new Promise((resolve) => { socket.onopen = resolve; });
      socket.send("not json");
      answers.push(await next());
      socket.send(JSON.stringify({ watch: ["0/no_such_field", "7/gp1_az", "0/gp2_az"] }));
      answers.push(await next());
      socket.send(JSON.stringify({ subscribe: "FieldStablizationTopicIn" }));
      answers.push(await next());
      const closed = new Promise((resolve) => { socket.onclose = (event) => resolve(event.code); });
      socket.send("x".repeat(100 * 1024));
      answers.push(await closed);
      return answers;
    });
    assert.match(refusals[0], /^not a JSON object/);
    assert.equal(refusals[1], "no such field: '0/no_such_field', '7/gp1_az'; the others are watched");
    assert.match(refusals[2], /^expected \{"watch":\[FIELD_ID, \.\.\.\]\}/);
    assert.notEqual(refusals[3], 1000, "a message too big ends that socket, not in the ordinary way");

    // A thousand connections at once: all but the free places are refused.
    const answers = await Promise.all(Array.from({ length: 1000 }, () => upgradeStatus(scope.url)));
    const refused = answers.filter((answer) => answer.status.includes(" 503 ")).length;
    for (const answer of answers) answer.socket.destroy();
    assert.ok(refused >= 998, `${refused} of 1000 refused`);
    const foreign = await upgradeStatus(scope.url, { Origin: "http://elsewhere.example" });
    foreign.socket.destroy();
    assert.match(foreign.status, / 403 /, "a page of another site may not connect");

    // The good page and the subscription carried on.
    const pointsBefore = await pointsOnPage();
    await until(async () => (await pointsOnPage()) > pointsBefore, "more points on the good page");
    assert.deepEqual(await page.evaluate(() => window.scope.state.errors), []);
    const counts = await countsOf(scope);
    assert.equal(counts.topics[0].gaps, 0);
    assert.ok(counts.refusedPages >= 999);
  } finally {
    await browser.close();
    pub.kill("SIGINT");
    await pub.exited;
    assert.equal(await stopScope(scope), 0, scope.err);
  }
});
