// Pictures before and after, drawn by another program: draw_models.cjs FOLDER MORVA MODELS
//
// Each model is drawn by f3d as it is and as the command writes it, from the same place. Pixels may
// differ by filters and by the order of triangles: a channel by 24 of 255 counts, and at most one
// pixel of 200 of those that show the model. Runs under xvfb-run; pictures are left in FOLDER.
"use strict";
const { execFileSync } = require("child_process");
const fs = require("fs");
const path = require("path");
const [folder, morva, models] = process.argv.slice(2).map((word) => path.resolve(word));
const { PNG } = require("module").createRequire(path.join(folder, "package.json"))("pngjs");

// A model, and what is put into its first material before it is drawn.
const box = "glTF2/BoxTexcoords-glTF/boxTexcoords.gltf"; // roughness by a second set of coordinates
const cases = [
  [box],
  [box, { emissiveFactor: [0, 0, 1], emissiveTexture: { index: 0, texCoord: 1 } }],
  [box, { doubleSided: false, emissiveFactor: [1, 0, 0], emissiveTexture: { index: 0 } }],
  [box, { occlusionTexture: { index: 0 }, alphaMode: "MASK", alphaCutoff: 0.25 }],
  [box, { pbrMetallicRoughness: { metallicRoughnessTexture: { index: 0 } } }],
  ["glTF2/ClearCoat-glTF/ClearCoatTest.gltf"],
  ["glTF2/BoxTextured-glTF-Binary/BoxTextured.glb"],
  ["glTF2/BoxTextured-glTF-Embedded/BoxTextured.gltf"],
  ["glTF2/BoxTextured-glTF/BoxTextured.gltf"],
  ["glTF2/BoxTextured-glTF-pbrSpecularGlossiness/BoxTextured.gltf"],
  ["glTF2/BoxTextured-glTF-techniqueWebGL/BoxTextured.gltf"],
  ["glTF2/glTF-Sample-Models/AnimatedMorphCube-glTF/AnimatedMorphCube.gltf"],
  ["glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb"],
];

// The model in a folder of its own, with a patched material.
function patched(model, patch, number) {
  const source = path.join(models, model);
  if (!patch) return source;
  const own = path.join(folder, `patched${number}`);
  fs.cpSync(path.dirname(source), own, { recursive: true });
  const file = path.join(own, path.basename(source));
  const gltf = JSON.parse(fs.readFileSync(file));
  Object.assign(gltf.materials[0], patch);
  fs.writeFileSync(file, JSON.stringify(gltf));
  return file;
}

// Where to look from: by the bounds of the parts of an output, which are where they are drawn.
function cameraOn(output) {
  const data = fs.readFileSync(output);
  const gltf = JSON.parse(data.subarray(20, 20 + data.readUInt32LE(12)));
  const bounds = gltf.accessors.filter((accessor) => accessor.min);
  const low = [0, 1, 2].map((k) => Math.min(...bounds.map((accessor) => accessor.min[k])));
  const high = [0, 1, 2].map((k) => Math.max(...bounds.map((accessor) => accessor.max[k])));
  const middle = low.map((value, k) => (value + high[k]) / 2);
  const far = 1.4 * Math.hypot(...low.map((value, k) => high[k] - value));
  const place = middle.map((value, k) => value + far * [0.5, 0.4, 0.8][k]);
  return ["--camera-position", place.join(), "--camera-focal-point", middle.join(),
    "--camera-view-up", "0,1,0"];
}

function draw(model, camera, picture) {
  execFileSync("f3d", ["--dry-run", "--resolution", "400,300", ...camera, "--output", picture, model],
    { stdio: "ignore" });
  return PNG.sync.read(fs.readFileSync(picture));
}

// Pixels that show something in one of two pictures, and those of them that differ.
function compare(one, other) {
  const near = (a, i, b, j, most) =>
    [0, 1, 2].every((k) => Math.abs(a.data[i + k] - b.data[j + k]) <= most);
  let shown = 0;
  let different = 0;
  for (let i = 0; i < one.data.length; i += 4) {
    if (!near(one, i, one, 0, 2) || !near(other, i, other, 0, 2)) shown += 1;
    if (!near(one, i, other, i, 24)) different += 1;
  }
  return { shown, different };
}

let failed = false;
for (const [number, [model, patch]] of cases.entries()) {
  const file = (name) => path.join(folder, `p${number}${name}`);
  const source = patched(model, patch, number);
  execFileSync(morva, ["optimize", source, "-o", file(".glb"), "-q", "--overwrite", "-p",
    "opt(1),maxtris(5000),flat(true)"]);
  const camera = cameraOn(file(".glb"));
  const [before, after] = [[source, "a.png"], [file(".glb"), "b.png"]].map(([drawn, picture]) =>
    draw(drawn, camera, file(picture)));
  const { shown, different } = compare(before, after);
  const good = shown > 1000 && different * 200 <= shown;
  failed = failed || !good;
  console.log(`${good ? "same" : "NOT the same"}  ${model} ${patch ? JSON.stringify(patch) : ""}: ` +
    `${different} of ${shown} pixels differ`);
}
process.exit(failed ? 1 : 0);
