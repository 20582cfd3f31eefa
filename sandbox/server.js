// Local stand-ins for the backend and the object store, on loopback only.
//
//   node server.js CERT_DIR DATA_DIR
//
// Backend (HTTPS on 18443 "production" and 18444 "test"):
//   GET  /print/task/list?screenNumber=S  answers DATA_DIR/tasks.json's entry for S (re-read on
//                                        every request), or an empty task list
//   POST /print/task/sync                appends the body as one line to DATA_DIR/sync.log
//   DATA_DIR/list-mode: every (default) | once (each task is listed at most once, as the soak
//   benchmark's backend that never repeats itself)
//   DATA_DIR/backend-mode: ok (default) | error (HTTP 500 with an error document) | silent
//   (never answers) | down (drops every connection) | sync-down (drops only the sync's)
// Object store (HTTPS on 18900, path-style /BUCKET/KEY): serves DATA_DIR/objects/KEY after
//   checking the V4 signature with the official JavaScript signer; OSS error documents for a
//   bad signature (403), a request signed too far from its clock (403 RequestTimeTooSkewed;
//   DATA_DIR/oss-clock: {"ahead": SECONDS, "serverTime": BOOL}) or a missing key (404).
//   DATA_DIR/oss-secret: the secret the store holds instead (a build with the wrong one).
//   DATA_DIR/oss-faults: one JSON object a line, each answering one request, in order:
//   {"error": 500} an error document | {"status": N, "body": "..."} that answer as it is |
//   {"cut": N} N bytes, then the connection drops | {"stall": true} headers, then nothing |
//   {"crc": "N"} the object with a wrong x-oss-hash-crc64ecma | {"status": N, "repeat": BYTES} that
//   answer with a body of BYTES bytes | {"trickle": MS, "chunk": N} the object N bytes (default 1) every MS milliseconds
//   Every object carries its CRC-64 in x-oss-hash-crc64ecma, as the real store sends it.
//   DATA_DIR/oss-mode: ok (default) | fail (HTTP 500) | stall (headers, then nothing) | cut
//   (half the body, then the connection drops)
// Every TLS handshake appends a line to DATA_DIR/handshakes.log: "backend" or "oss"; every
// object-store request its key to DATA_DIR/oss-requests.log.
'use strict';
const fs = require('fs');
const https = require('https');
const path = require('path');
const signUtils = require(path.join(__dirname, 'node_modules', 'ali-oss', 'lib', 'common', 'signUtils'));

const [certDir, dataDir] = process.argv.slice(2);
// Tests run their own on free ports: KPS_SANDBOX_PORTS=PRODUCTION,TEST,OBJECT_STORE.
const [productionPort, testPort, ossPort] =
  (process.env.KPS_SANDBOX_PORTS || '18443,18444,18900').split(',').map(Number);
const config = {
  bucket: process.env.KPS_SANDBOX_BUCKET || 'qzlp',
  accessKeyId: process.env.KPS_SANDBOX_AK || 'sandbox-access-key-id',
  accessKeySecret: process.env.KPS_SANDBOX_SK || 'sandbox-access-key-secret',
};
const tls = {
  key: fs.readFileSync(path.join(certDir, 'server.key')),
  cert: fs.readFileSync(path.join(certDir, 'server.pem')),
};
const listed = new Set();

// CRC-64/XZ (ECMA-182 polynomial, reflected, all-ones start and end), as the store reports it.
const crcTable = (() => {
  const table = [];
  for (let i = 0n; i < 256n; i++) {
    let crc = i;
    for (let bit = 0; bit < 8; bit++) crc = (crc & 1n) ? (crc >> 1n) ^ 0xC96C5795D7870F42n : crc >> 1n;
    table.push(crc);
  }
  return table;
})();
function crc64(bytes) {
  let crc = 0xFFFFFFFFFFFFFFFFn;
  for (const byte of bytes) crc = crcTable[Number((crc ^ BigInt(byte)) & 0xFFn)] ^ (crc >> 8n);
  return (crc ^ 0xFFFFFFFFFFFFFFFFn).toString();
}

function mode(name) {
  try { return fs.readFileSync(path.join(dataDir, name), 'utf8').trim() || 'ok'; } catch { return 'ok'; }
}

function readBody(req) {
  return new Promise(resolve => {
    const chunks = [];
    req.on('data', c => chunks.push(c));
    req.on('end', () => resolve(Buffer.concat(chunks).toString('utf8')));
  });
}

async function backend(req, res) {
  const url = new URL(req.url, 'https://localhost');
  const body = await readBody(req);
  const m = mode('backend-mode');
  if (m === 'silent') return;  // the client's own time-out ends it
  if (m === 'down' || (m === 'sync-down' && url.pathname === '/print/task/sync')) {
    return req.socket.destroy();
  }
  if (m === 'error') {
    res.writeHead(500, { 'Content-Type': 'application/json' });
    return res.end('{"code":"500","msg":"sandbox backend error"}');
  }
  if (req.method === 'GET' && url.pathname === '/print/task/list') {
    let tasks = {};
    try { tasks = JSON.parse(fs.readFileSync(path.join(dataDir, 'tasks.json'), 'utf8')); } catch {}
    const screen = url.searchParams.get('screenNumber') || '';
    let answer = tasks[screen] || { code: '100', msg: 'success', data: [] };
    if (mode('list-mode') === 'once' && typeof answer === 'object' && Array.isArray(answer.data)) {
      answer = { ...answer, data: answer.data.filter(task => !listed.has(task.taskId)) };
      for (const task of answer.data) listed.add(task.taskId);
    }
    res.writeHead(200, { 'Content-Type': 'application/json' });
    return res.end(typeof answer === 'string' ? answer : JSON.stringify(answer));
  }
  if (req.method === 'POST' && url.pathname === '/print/task/sync') {
    fs.appendFileSync(path.join(dataDir, 'sync.log'), body.replace(/\n/g, ' ') + '\n');
    res.writeHead(200, { 'Content-Type': 'application/json' });
    return res.end('{"code":"100","msg":"success"}');
  }
  res.writeHead(404, { 'Content-Type': 'application/json' });
  res.end('{"code":"404","msg":"not found"}');
}

function ossError(res, status, code, message, requestId, extra = '') {
  res.writeHead(status, { 'Content-Type': 'application/xml', 'x-oss-request-id': requestId });
  res.end(`<?xml version="1.0" encoding="UTF-8"?>\n<Error>\n  <Code>${code}</Code>\n  <Message>${message}</Message>\n  <RequestId>${requestId}</RequestId>\n  <HostId>127.0.0.1</HostId>\n${extra}</Error>\n`);
}

// The first scripted fault, taken off the queue.
function nextFault() {
  const file = path.join(dataDir, 'oss-faults');
  let lines = [];
  try { lines = fs.readFileSync(file, 'utf8').split('\n').filter(Boolean); } catch { return null; }
  if (!lines.length) return null;
  fs.writeFileSync(file, lines.slice(1).map(l => l + '\n').join(''));
  return JSON.parse(lines[0]);
}

function objectStore(req, res) {
  const rawPath = req.url.split('?')[0];
  const slash = rawPath.indexOf('/', 1);
  const bucket = decodeURIComponent(rawPath.slice(1, slash));
  const key = decodeURIComponent(rawPath.slice(slash + 1));
  const log = path.join(dataDir, 'oss-requests.log');
  fs.appendFileSync(log, key + '\n');
  const requestId = 'SANDBOX' + String(fs.readFileSync(log, 'utf8').split('\n').length - 1).padStart(8, '0');
  const headers = {};
  for (const [name, value] of Object.entries(req.headers)) headers[name] = value;
  delete headers.authorization;
  let expected = '';
  let secret = config.accessKeySecret;
  try { secret = fs.readFileSync(path.join(dataDir, 'oss-secret'), 'utf8').trim() || secret; } catch {}
  try {
    expected = signUtils.authorizationV4(config.accessKeyId, secret, 'cn-beijing',
      req.method, { headers, queries: {} }, bucket, key);
  } catch {}
  if (slash < 0 || req.headers.authorization !== expected) {
    return ossError(res, 403, 'SignatureDoesNotMatch',
      'The request signature we calculated does not match the signature you provided.', requestId);
  }
  let clock = null;
  try { clock = JSON.parse(fs.readFileSync(path.join(dataDir, 'oss-clock'), 'utf8')); } catch {}
  if (clock) {
    const d = req.headers['x-oss-date'] || '';
    const signed = Date.UTC(+d.slice(0, 4), +d.slice(4, 6) - 1, +d.slice(6, 8), +d.slice(9, 11), +d.slice(11, 13), +d.slice(13, 15));
    const now = Date.now() + clock.ahead * 1000;
    if (Math.abs(signed - now) > 15 * 60 * 1000) {
      res.setHeader('Date', new Date(now).toUTCString());
      return ossError(res, 403, 'RequestTimeTooSkewed', 'The difference between the request time and the current time is too large.',
        requestId, clock.serverTime ? `  <ServerTime>${new Date(now).toISOString()}</ServerTime>\n` : '');
    }
  }
  const fault = nextFault() || {};
  if (fault.status) {
    res.writeHead(fault.status, { 'Content-Type': 'application/xml', 'x-oss-request-id': requestId });
    return res.end(fault.repeat ? Buffer.alloc(fault.repeat, 'x') : fault.body || '');
  }
  const m = mode('oss-mode');
  if (m === 'fail' || fault.error) {
    return ossError(res, 500, 'InternalError', 'We encountered an internal error. Please try again.', requestId);
  }
  const file = path.join(dataDir, 'objects', key);
  if (bucket !== config.bucket || !file.startsWith(path.join(dataDir, 'objects') + path.sep) ||
      !fs.existsSync(file) || !fs.statSync(file).isFile()) {
    return ossError(res, 404, 'NoSuchKey', 'The specified key does not exist.', requestId);
  }
  const bytes = fs.readFileSync(file);
  res.writeHead(200, { 'Content-Type': 'image/jpeg', 'Content-Length': bytes.length,
    'x-oss-request-id': requestId, 'x-oss-hash-crc64ecma': fault.crc || crc64(bytes) });
  if (m === 'stall' || fault.stall) return res.flushHeaders();
  if (fault.trickle) {
    let sent = 0;
    const timer = setInterval(() => {
      if (sent >= bytes.length) { clearInterval(timer); return res.end(); }
      const next = Math.min(bytes.length, sent + (fault.chunk || 1));
      res.write(bytes.subarray(sent, next));
      sent = next;
    }, fault.trickle);
    return res.on('close', () => clearInterval(timer));
  }
  if (m === 'cut' || fault.cut !== undefined) {
    res.write(bytes.subarray(0, fault.cut !== undefined ? fault.cut : Math.floor(bytes.length / 2)));
    return setTimeout(() => req.socket.destroy(), 50);
  }
  res.end(bytes);
}

function counted(server, name) {
  server.on('secureConnection', () => fs.appendFileSync(path.join(dataDir, 'handshakes.log'), name + '\n'));
  return server;
}
// DATA_DIR/ready appears once all three listen; a port in use ends the process instead.
let listening = 0;
function ready() {
  if (++listening < 3) return;
  fs.writeFileSync(path.join(dataDir, 'ready'), String(process.pid));
  console.log('sandbox: backend on https://localhost:18443 and :18444, object store on https://127.0.0.1:18900');
}
for (const port of [productionPort, testPort]) counted(https.createServer(tls, backend), 'backend').listen(port, '127.0.0.1', ready);
counted(https.createServer(tls, objectStore), 'oss').listen(ossPort, '127.0.0.1', ready);
