// Starting the tools and the browser for the scope's browser tests, and
// waiting on them with generous bounds instead of fixed sleeps.
import { spawn } from "node:child_process";
import net from "node:net";
import { tmpdir } from "node:os";
import { chromium } from "playwright-core";

export const scopePath = process.env.LUMO_SCOPE_PATH;
export const pubPath = process.env.LUMO_PUB_PATH;
export const outputDir = process.env.LUMO_SCOPE_OUTPUT_DIR ?? tmpdir();

/// A loopback port nothing listens on, below the ephemeral range.
export async function freePort() {
  for (;;) {
    const port = 20000 + Math.floor(Math.random() * 10000);
    const free = await new Promise((resolve) => {
      const server = net.createServer();
      server.once("error", () => resolve(false));
      server.listen(port, "127.0.0.1", () => server.close(() => resolve(true)));
    });
    if (free) return port;
  }
}

/// A child process whose output is kept; `exited` settles with its exit code.
export function start(program, args) {
  const child = spawn(program, args, { stdio: ["ignore", "pipe", "pipe"] });
  child.out = "";
  child.err = "";
  child.stdout.on("data", (chunk) => { child.out += chunk; });
  child.stderr.on("data", (chunk) => { child.err += chunk; });
  child.exited = new Promise((resolve) => child.on("exit", (code) => resolve(code)));
  return child;
}

export async function until(condition, what, limitMs = 30000) {
  const end = Date.now() + limitMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > end) throw new Error(`not within ${limitMs} ms: ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
}

/// Starts krin-scope on `subscriptions` ([uri, topic, ...]) and waits for its address.
export async function startScope(subscriptions, options = []) {
  const scope = start(scopePath, [...options, ...subscriptions]);
  const url = await until(() => (scope.out.match(/serving (http:\/\/\S+)/) || [])[1],
    `krin-scope's address (stderr: ${scope.err})`);
  scope.url = url;
  return scope;
}

export async function stopScope(scope) {
  scope.kill("SIGINT");
  return scope.exited;
}

/// The scope's counts, as GET /stats.json gives them.
export async function countsOf(scope) {
  const response = await fetch(`${scope.url}stats.json`);
  return (await response.json()).counts;
}

/// The system's Chromium, headless, in a fresh profile of its own (the
/// launcher makes one per launch), kept off every network but loopback.
export async function launchBrowser() {
  return chromium.launch({
    executablePath: "/usr/bin/chromium",
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
}

/// Ticks the field's box on the page.
export async function pickField(page, topic, fieldPath) {
  await page.locator(`input[data-topic="${topic}"][data-path="${fieldPath}"]`).check();
}

export const fieldStabilisationSample = {
  quality: true, sim: false, timestamp_utc: 1.5, sample_id: 7,
  gp1_cent_err: [0.5, 1.5], gp2_cent_err: [], gp3_cent_err: [], pds_cent_err: [],
  gp1_pos_error: [], gp2_pos_error: [], gp3_pos_error: [], pds_pos_error: [],
  gp1_az: 2.25, gp2_az: -3.5, gp3_az: 0.125, pds_az: 0,
  m5_tt_act: [], m4_tt_applied: [], tt_err_ins: [], tt_ref_ins: [], tel_north_angle: 1,
};

export const hokuSample = {
  quality: true, sim: true, timestamp_utc: 2.5, sample_id: 9,
  coefficients: [0.5, 1.5, -2.25, 4, 0.75, -1], m4_setpoints_applied: [], m4_setpoints_hoku: [],
};

/// Asks for a WebSocket over a plain TCP connection and gives the status line
/// of the answer: what a page that was refused would be told.
export function upgradeStatus(url, headers = {}) {
  const { hostname, port } = new URL(url);
  return new Promise((resolve, reject) => {
    const socket = net.connect(Number(port), hostname, () => {
      const extra = Object.entries(headers).map(([key, value]) => `${key}: ${value}\r\n`).join("");
      socket.write(`GET / HTTP/1.1\r\nHost: ${hostname}:${port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
        `Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n${extra}\r\n`);
    });
    let answer = "";
    socket.on("data", (chunk) => {
      answer += chunk;
      if (answer.includes("\r\n")) {
        resolve({ status: answer.slice(0, answer.indexOf("\r\n")), socket });
      }
    });
    socket.on("error", reject);
  });
}
