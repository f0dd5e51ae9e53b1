// Every file below MODELS through three sets of parameters: sweep_models.cjs FOLDER MORVA MODELS
//
// A run ends with 0, its audit passed and its file valid by gltf-validator, or with 1 and one clear
// line. All that differs is told, and makes the sweep fail.
"use strict";
const { execFile } = require("child_process");
const fs = require("fs");
const os = require("os");
const path = require("path");
const [folder, morva, models] = process.argv.slice(2).map((word) => path.resolve(word));
const validator = require("module").createRequire(path.join(folder, "package.json"))("gltf-validator");

const sets = [
  () => "opt(1),maxtris(5000),flat(true)",
  (map) => `opt(2),maxtris(5000),maxtexturesize(2048),idmap(${map})`,
  () => "",
];
const files = fs.readdirSync(models, { recursive: true })
  .filter((name) => fs.statSync(path.join(models, name)).isFile()).sort();
const jobs = files.flatMap((name) => sets.map((set, number) => ({ name, set, number })));
const counts = [0, 1, 2].map(() => ({ optimised: 0, refused: 0 }));
let faults = 0;

function fault(job, text) {
  faults += 1;
  console.log(`${job.name}, set ${job.number + 1}: ${text}`);
}

async function firstError(file) {
  const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)), { maxIssues: 0 });
  const error = report.issues.messages.find((issue) => issue.severity === 0);
  return error && `${error.code} ${error.message} ${error.pointer}`;
}

async function run(job, worker) {
  const [output, map] = [".glb", "map"].map((end) => path.join(folder, `sweep${worker}${end}`));
  const { code, text } = await new Promise((resolve) =>
    execFile(morva, ["optimize", path.join(models, job.name), "-o", output, "--overwrite", "-p",
      job.set(map)], { timeout: 300000, maxBuffer: 1 << 28 }, (error, out, err) =>
      resolve({ code: error ? error.code ?? error.signal : 0, text: err })));
  const lines = text.split("\n").filter((line) => line && !line.startsWith("morva: note: "));
  if (code === 0) {
    counts[job.number].optimised += 1;
    const error = await firstError(output);
    if (error) fault(job, error);
  } else if (code === 1 && lines.length === 1 && lines[0].startsWith("morva: ")) {
    counts[job.number].refused += 1;
  } else {
    fault(job, `exit ${code}: ${lines.slice(0, 3).join(" | ")}`);
  }
}

async function work(_, worker) {
  for (let job = jobs.shift(); job; job = jobs.shift()) await run(job, worker);
}

Promise.all(Array.from({ length: os.cpus().length }, work)).then(() => {
  counts.forEach(({ optimised, refused }, number) =>
    console.log(`set ${number + 1}: ${optimised} optimised, ${refused} refused of ${files.length}`));
  console.log(`${faults} faults`);
  process.exit(faults ? 1 : 0);
});
