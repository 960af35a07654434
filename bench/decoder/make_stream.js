// A dot-stuffed yEnc stream of SIZE random bytes (seeded, so runs repeat):
// yencode's encoding with 128-character lines, leading dots doubled as on the wire.
// usage: node make_stream.js SIZE OUTPUT
const fs = require('fs');
const y = require('yencode');
const size = parseInt(process.argv[2], 10);
const data = Buffer.alloc(size);
let s = 0x9e3779b9;
for (let i = 0; i < size; i += 4) { s ^= s << 13; s ^= s >>> 17; s ^= s << 5; data.writeUInt32LE(s >>> 0, Math.min(i, size - 4)); }
let enc = y.encode(data, 128).toString('latin1');
enc = enc.replace(/\r\n\./g, '\r\n..');
if (enc.startsWith('.')) enc = '.' + enc;
fs.writeFileSync(process.argv[3], Buffer.from(enc, 'latin1'));
fs.writeFileSync(process.argv[3] + '.crc', y.crc32(data).toString('hex') + '\n');
