// Runs lumo-demo with its scope, opens the page in the system's Chromium,
// plots a few fields of each kind while the loop runs, saves a picture of the
// page and prints what the scope's subscriber received against what the
// demo sent. Not a test: docs/tools.md quotes its figures, and README.md
// shows its picture.
//
//   node tests/scope/demoPage.mjs build/tools/lumo-demo RATE SECONDS PICTURE.png [DEMO OPTION...]
import { start, launchBrowser, pickField, until, countsOf } from "./scopeProcesses.mjs";

const [demoPath, rate = "10000", seconds = "10", picture = "scope.png", ...demoOptions] = process.argv.slice(2);
// The browser first: on a busy machine it takes seconds to start.
const browser = await launchBrowser();
const page = await browser.newPage({ viewport: { width: 1400, height: 1250 } });
const demo = start(demoPath, ["--scope", "--quiet", "--rate", rate, "--duration", seconds, ...demoOptions]);
const url = await until(() => (demo.out.match(/scope at (http:\/\/\S+?),/) || [])[1],
  `the scope's address (demo said: ${demo.out}${demo.err})`);
page.on("pageerror", (error) => console.log(`page error: ${error.message}`));
await page.goto(url);
await pickField(page, "FieldStablizationTopicIn", "tel_north_angle");
await pickField(page, "FieldStablizationTopicOut", "spare_channel_1");
await page.click("#new-chart");
await pickField(page, "FieldStablizationTopicIn", "sample_id");
await pickField(page, "LumoMode", "controlMode");
await pickField(page, "FieldStablizationTopicIn", "tt_err_ins[]");
await pickField(page, "FieldStablizationTopicOut", "u5_fs_tt[]");
await until(() => page.evaluate(() => window.scope.plotted("7/tel_north_angle").length > 0), "points on the page");
await until(() => demo.out.includes("until Ctrl-C"), "the demo's report", (Number(seconds) + 60) * 1000);
await page.screenshot({ path: picture });
const dropped = await page.evaluate(() => window.scope.state.counts.droppedForThisPage);
const counts = await countsOf({ url });
await browser.close();
demo.kill("SIGINT");
await demo.exited;
console.log(demo.out);
for (const topic of counts.topics) {
  console.log(`scope: ${topic.topic}: ${topic.samples} samples, sampleSequence ${topic.first} to ${topic.last}, ` +
    `${topic.gaps} gaps, ${topic.missing} missing`);
}
console.log(`scope: points dropped for the page: ${dropped}`);
