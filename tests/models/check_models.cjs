// Other programs read what the command writes: check_models.cjs FOLDER MORVA MODELS
//
// FOLDER holds the installed packages and takes the outputs. Models are optimised with an ID map;
// each file must be valid by gltf-validator, and 3d-tiles-tools must read from it the parts that
// the report and the ID map tell of: names, paths and boxes in the table, and per core as many
// triangles of each part. What gltfpack -kv keeps is told, and is no failure.
"use strict";
const { execFileSync } = require("child_process");
const fs = require("fs");
const path = require("path");
const [folder, morva, models] = process.argv.slice(2).map((word) => path.resolve(word));
const load = require("module").createRequire(path.join(folder, "package.json"));
const validator = load("gltf-validator");
const tiles = load("3d-tiles-tools");
const gltfpack = load.resolve("gltfpack/cli.js");

const cases = [
  ["glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", "opt(1),maxtris(5000)", "glb"],
  ["glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", "opt(3),maxtris(700)", "gltf"],
  ["OBJ/spider.obj", "opt(2),maxtris(300)", "glb"],
  ["IFC/AC14-FZK-Haus.ifc", "opt(2),maxtris(5000)", "glb"],
];
const simplified = [
  ["glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", "0.8,0.5", "glb"],
  ["IFC/AC14-FZK-Haus.ifc", "0.9,0.2", "gltf"],
  ["OBJ/spider.obj", "0.7", "glb"],
];

function same(what, seen, expected) {
  const [one, other] = [seen, expected].map((value) => JSON.stringify(value));
  if (one !== other) throw new Error(`${what}: ${one} instead of ${other}`);
}

async function validate(file) {
  const read = (name) =>
    fs.promises.readFile(path.join(path.dirname(file), decodeURIComponent(name)));
  const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)), {
    uri: path.basename(file),
    maxIssues: 0,
    externalResourceFunction: async (name) => new Uint8Array(await read(name)),
  });
  const counts = {};
  for (const issue of report.issues.messages) {
    counts[issue.code] = (counts[issue.code] || 0) + 1;
    if (issue.severity < 2)
      throw new Error(`${file}: ${issue.code} ${issue.message} ${issue.pointer}`);
  }
  const texts = Object.entries(counts).map(([code, count]) => `${count} ${code}`);
  return texts.join(", ") || "no issues";
}

// The part table by the property model of 3d-tiles-tools, as objects.
function tableOf(file) {
  const { jsonData, binData } = tiles.GltfUtilities.extractDataFromGlb(fs.readFileSync(file));
  const gltf = JSON.parse(jsonData.toString());
  const metadata = gltf.extensions.EXT_structural_metadata;
  const propertyTable = metadata.propertyTables[0];
  const model = new tiles.BinaryPropertyTableModel({
    propertyTable,
    binaryMetadata: {
      metadataClass: metadata.schema.classes[propertyTable.class],
      binaryEnumInfo: { enumValueTypes: {}, enumValueNameValues: {}, enumValueValueNames: {} },
      binaryBufferStructure: { buffers: gltf.buffers, bufferViews: gltf.bufferViews },
      binaryBufferData: {
        buffersData: [binData],
        bufferViewsData: gltf.bufferViews.map((view) =>
          binData.subarray(view.byteOffset, view.byteOffset + view.byteLength)),
      },
    },
  });
  return Array.from({ length: propertyTable.count }, (_, row) => {
    const entity = model.getMetadataEntityModel(row);
    const [name, path, low, high] = ["name", "path", "boxMin", "boxMax"].map((key) =>
      model.getPropertyNames().includes(key) ? entity.getPropertyValue(key) : "");
    return { name, path, low, high };
  });
}

function compareTable(file, report, map) {
  const table = tableOf(file);
  const numbers = (text) => text.split(",").map(Number);
  const near = (seen, expected) =>
    expected.every((value, k) => Math.abs(value - seen[k]) <= 1e-5 * Math.abs(value) + 1e-6);
  for (const { id, name, original_names: originals } of report.ids) {
    same(`${file}, row ${id}`, [table[id].path, table[id].name], [name, originals[0]]);
    const entry = map.mapping.find((entry) => entry.name === name);
    if (!near(table[id].low, numbers(entry.min)) || !near(table[id].high, numbers(entry.max)))
      throw new Error(`${file}, row ${id}: its box is not that of the ID map`);
  }
  return table;
}

// Triangles of a primitive by row; throws where its count of features is wrong.
function trianglesOf(primitive, file) {
  const features = primitive.getExtension("EXT_mesh_features");
  const counts = {};
  const set = features && features.listFeatureIDs()[0];
  const rows = primitive.getAttribute("_FEATURE_ID_0");
  if (!rows || primitive.getMode() !== 4) return counts;
  const indices = primitive.getIndices();
  const vertex = (corner) => (indices ? indices.getScalar(corner) : corner);
  for (let corner = 0; corner < (indices || rows).getCount(); corner += 3) {
    const row = rows.getScalar(vertex(corner));
    counts[row] = (counts[row] || 0) + 1;
  }
  if (set) {
    const all = new Set(rows.getArray());
    all.delete(set.getNullFeatureID());
    same(`${file}, features of a primitive`, set.getFeatureCount(), all.size);
  }
  return counts;
}

async function trianglesByNode(file) {
  const document = await (await tiles.GltfTransform.getIO()).read(file);
  const nodes = {};
  for (const node of document.getRoot().listNodes()) {
    for (const primitive of node.getMesh() ? node.getMesh().listPrimitives() : []) {
      const counts = (nodes[node.getName()] = nodes[node.getName()] || {});
      for (const [row, count] of Object.entries(trianglesOf(primitive, file)))
        counts[row] = (counts[row] || 0) + count;
    }
  }
  return nodes;
}

function sum(nodes) {
  const all = {};
  for (const counts of Object.values(nodes))
    for (const [row, count] of Object.entries(counts)) all[row] = (all[row] || 0) + count;
  return all;
}

// What a pass of gltfpack leaves of the parts.
async function afterPacking(file, before) {
  const packed = file.replace(/\.(glb|gltf)$/, ".packed.glb");
  execFileSync(process.execPath, [gltfpack, "-i", file, "-o", packed, "-kv"]);
  const { jsonData } = tiles.GltfUtilities.extractDataFromGlb(fs.readFileSync(packed));
  const used = JSON.parse(jsonData.toString()).extensionsUsed || [];
  const kept = used.filter((name) => /^EXT_(mesh_features|structural_metadata)$/.test(name));
  const rows = JSON.stringify(sum(await trianglesByNode(packed))) === JSON.stringify(sum(before));
  return `${rows ? "every" : "NOT every"} row kept, extensions: ${kept.join(", ") || "none kept"}`;
}

async function check([model, parameters, format], number) {
  const file = (name) => path.join(folder, `${number}${name}`);
  const output = file(`.${format}`);
  execFileSync(morva, ["optimize", path.join(models, model), "-o", output, "-p",
    `${parameters},idmap(${file("map")})`, "-q", "--overwrite", "--report", file("report.json")]);
  console.log(`${path.basename(model)} ${parameters} ${format}`);
  console.log("  gltf-validator:", await validate(output));
  const report = JSON.parse(fs.readFileSync(file("report.json")));
  const map = JSON.parse(fs.readFileSync(file("map.json")));
  const nodes = await trianglesByNode(output);
  const table = format === "glb" ? compareTable(output, report, map) : [];
  for (const core of report.cores) {
    const expected = {};
    const rows = Object.keys(nodes[core.name]);
    if (core.ids.length === 0 && rows.length === 1) { // carried over
      expected[rows[0]] = core.triangles;
      if (table.length) same(`${output}, its path`, table[rows[0]].path, core.name);
    }
    for (const { id, triangles } of core.ids) if (triangles) expected[id] = triangles;
    same(`${output}, ${core.name}`, nodes[core.name], expected);
  }
  console.log(`  3d-tiles-tools: ${report.cores.length} cores, ${Object.keys(sum(nodes)).length} parts`
    + (table.length ? `, ${table.length} rows` : ""));
  console.log("  gltfpack -kv:", await afterPacking(output, nodes));
}

async function checkSimplified([model, ratios, format], number) {
  const output = (level) => path.join(folder, `s${number}${level}.${format}`);
  execFileSync(morva, ["simplify", path.join(models, model), "-o", output(""), "--lods", ratios, "-q",
    "--overwrite"]);
  for (const [level, ratio] of ratios.split(",").entries())
    console.log(`${path.basename(model)} to ${ratio}\n  gltf-validator:`,
      await validate(output(`.lod${level + 1}`)));
}

(async () => {
  for (const [number, entry] of cases.entries()) await check(entry, number);
  for (const [number, entry] of simplified.entries()) await checkSimplified(entry, number);
})().catch((error) => {
  console.error(error.message);
  process.exit(1);
});
