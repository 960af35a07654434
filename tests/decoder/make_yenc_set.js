// Builds a downloaded set's temporary file from a binary, the way the
// download step leaves it: every part's article text followed by CR LF, with
// optional text lines before and between parts.
// usage: node make_yenc_set.js INPUT OUTPUT PARTSIZE [options]
//   --name=NAME   file name in the headers   --order=shuffle|reverse
//   --twice=N     post part N twice          --drop=N   leave part N out
//   --lf          LF line ends               --text     text lines around the parts
//   --line=N      line length (default 128)
const fs = require('fs');
const path = require('path');
const y = require(process.env.ND_YENCODE || 'yencode');
const [input, output, partSizeArg, ...opts] = process.argv.slice(2);
const opt = {};
for (const o of opts) { const m = /^--([a-z]+)(?:=(.*))?$/.exec(o); if (m) opt[m[1]] = m[2] === undefined ? true : m[2]; }
const data = fs.readFileSync(input);
const partSize = Math.max(1, parseInt(partSizeArg, 10));
const parts = Math.max(1, Math.ceil(data.length / partSize));
const line = opt.line ? parseInt(opt.line, 10) : 128;
const name = opt.name || path.basename(input);
let texts = [];
if (parts === 1 && !opt.multi) {
  texts.push(y.post(name, data, line));
} else {
  const enc = y.multi_post(name, data.length, parts, line);
  for (let i = 0; i < parts; i++)
    texts.push(enc.encode(data.subarray(i * partSize, Math.min(data.length, (i + 1) * partSize))));
}
let order = texts.map((_, i) => i);
if (opt.order === 'reverse') order.reverse();
if (opt.order === 'shuffle') {
  let seed = 12345;
  for (let i = order.length - 1; i > 0; i--) { seed = (seed * 1103515245 + 12345) & 0x7fffffff; const j = seed % (i + 1); [order[i], order[j]] = [order[j], order[i]]; }
}
if (opt.twice) order.push(parseInt(opt.twice, 10) - 1);
if (opt.drop) order = order.filter(i => i !== parseInt(opt.drop, 10) - 1);
const out = [];
const eol = opt.lf ? '\n' : '\r\n';
if (opt.text) out.push(Buffer.from('Here it is, enjoy!' + eol + eol));
for (const i of order) {
  let t = Buffer.from(texts[i]);
  if (opt.lf) t = Buffer.from(t.toString('latin1').replace(/\r\n/g, '\n'), 'latin1');
  out.push(t, Buffer.from('\r\n'));
  if (opt.text) out.push(Buffer.from('-- ' + eol + 'posted with love, part ' + (i + 1) + eol));
}
fs.writeFileSync(output, Buffer.concat(out));
