// Runs the Khronos glTF validator on the files given; prints one line per file
// and the errors and warnings it found. Exit status 1 when any file has errors.
const validator = require('gltf-validator');
const fs = require('fs');
const path = require('path');
(async () => {
  let failed = 0;
  for (const file of process.argv.slice(2)) {
    const data = new Uint8Array(fs.readFileSync(file));
    const report = await validator.validateBytes(data, {
      uri: path.basename(file),
      externalResourceFunction: (uri) => new Promise((resolve, reject) => {
        try { resolve(new Uint8Array(fs.readFileSync(path.resolve(path.dirname(file), decodeURIComponent(uri))))); }
        catch (e) { reject(e.toString()); }
      }),
    });
    const i = report.issues;
    console.log(`${file}: errors ${i.numErrors} warnings ${i.numWarnings} infos ${i.numInfos} images ${(report.info && report.info.resources || []).filter(r => r.pointer.startsWith('/images')).length}`);
    for (const m of i.messages) if (m.severity <= 1) console.log(`  ${m.severity == 0 ? 'ERROR' : 'WARN'} ${m.code} ${m.pointer || ''} ${m.message}`);
    if (i.numErrors) failed++;
  }
  process.exit(failed ? 1 : 0);
})();
