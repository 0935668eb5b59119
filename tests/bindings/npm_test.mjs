// The npm package in Node.js against what the library of this system sees.
//
//   node npm_test.mjs PACKAGE EXPECTED      EXPECTED is what npm_expected.py wrote; exit code 77 without
//
// Runs in the folder tests/.
import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { existsSync, readFileSync } from "node:fs";
import path from "node:path";
import test from "node:test";
import { pathToFileURL } from "node:url";

const [folder, expectedFile] = process.argv.slice(2);
if (!existsSync(expectedFile)) process.exit(77); // there is nothing to compare with
const { decode, info, TarnquillError } = await import(pathToFileURL(path.resolve(folder, "index.mjs")));
const expected = JSON.parse(readFileSync(expectedFile));

const kNoSuchPage = -11;
const kOutOfMemory = -1;

const kKinds = {
  whole: (bytes) => bytes,
  cut: (bytes) => bytes.subarray(0, Math.floor((bytes.length * 2) / 3)),
  changed: (bytes) => {
    const changed = Uint8Array.from(bytes);
    for (let at = 60; at < changed.length; at += 211) changed[at] ^= 0x5a;
    return changed;
  },
};

// What a promise gives, or the status that it ends with.
async function outcome(promise) {
  try {
    return await promise;
  } catch (thrown) {
    assert.ok(thrown instanceof TarnquillError && thrown.message !== "", thrown);
    return thrown.status;
  }
}

async function seen(bytes, page) {
  const picture = await outcome(decode(bytes, page));
  if (typeof picture === "number") return picture;
  assert.ok(picture.rgba instanceof Uint8ClampedArray);
  const digest = createHash("sha256").update(picture.rgba).digest("hex");
  const { width, height, bits, dpi, damage = null, damagedRows = null } = picture;
  return { width, height, bits, dpi, damage, damagedRows, digest };
}

for (const kind of Object.keys(kKinds)) {
  test(`every file of the corpus, ${kind}, is what the library sees in it`, async () => {
    const formats = new Set();
    for (const [name, owed] of Object.entries(expected)) {
      const bytes = kKinds[kind](readFileSync(name));
      const said = await outcome(info(bytes));
      if (typeof said === "number") {
        assert.equal(said, owed[kind].info, name);
      } else {
        const { format, pages, width, height, bits } = said;
        formats.add(format);
        assert.deepEqual({ format, pages, width, height, bits }, owed[kind].info, name);
      }
      for (const [page, owedPage] of owed[kind].pages.entries()) {
        assert.deepEqual(await seen(bytes, page), owedPage, `${name}, page ${page}`);
      }
    }
    assert.ok(formats.size > 25, `only ${[...formats]}`);
  });
}

test("info tells what decode gives", async () => {
  for (const name of Object.keys(expected)) {
    const bytes = readFileSync(name);
    const said = await outcome(info(bytes));
    const picture = await outcome(decode(bytes));
    if (typeof picture === "number" || typeof said === "number") continue;
    const { format, width, height, pages } = picture;
    assert.deepEqual({ format, width, height, pages },
      { format: said.format, width: said.width, height: said.height, pages: said.pages }, name);
  }
});

// Grey levels, of 200 x 100 dots per inch.
function tiffOf(width, height, levels, orientation) {
  const entries = [[256, 3, width], [257, 3, height], [258, 3, 8], [259, 3, 1], [262, 3, 1], [273, 4, 300],
    [274, 3, orientation], [277, 3, 1], [278, 3, height], [279, 4, levels.length], [282, 5, 200], [283, 5, 208],
    [296, 3, 2]];
  const view = new DataView(new ArrayBuffer(300 + levels.length));
  view.setUint32(0, 0x002a4949, true);
  view.setUint32(4, 8, true);
  view.setUint16(8, entries.length, true);
  for (const [i, [tag, type, value]] of entries.entries()) {
    view.setUint16(10 + 12 * i, tag, true);
    view.setUint16(12 + 12 * i, type, true);
    view.setUint32(14 + 12 * i, 1, true);
    view.setUint32(18 + 12 * i, value, true);
  }
  for (const [i, value] of [200, 1, 100, 1].entries()) view.setUint32(200 + 4 * i, value, true);
  new Uint8Array(view.buffer).set(levels, 300);
  return view;
}

test("a picture is turned as its file says, and so is what info tells", async () => {
  const file = tiffOf(3, 2, [0, 50, 100, 150, 200, 250], 6);
  const { width, height, dpi, rgba } = await decode(file);
  assert.deepEqual([...rgba].filter((_, i) => i % 4 === 0), [150, 0, 200, 50, 250, 100]);
  assert.deepEqual({ width, height, dpi }, { width: 2, height: 3, dpi: { x: 100, y: 200 } });
  const said = await info(file);
  assert.deepEqual([said.width, said.height, said.dpi], [width, height, dpi]);
});

test("pages of one file are different pictures, and there is an end to them", async () => {
  const bytes = readFileSync("corpus/dcx/colours.dcx");
  const { pages } = await info(bytes);
  assert.ok(pages > 1);
  const digests = new Set();
  for (let page = 0; page < pages; ++page) digests.add((await seen(bytes, page)).digest);
  assert.equal(digests.size, pages);
  await assert.rejects(decode(bytes, pages), { name: "TarnquillError", status: kNoSuchPage });
});

test("random bytes behind any beginning give an error or a picture", async () => {
  let state = 1;
  const random = () => (state = (Math.imul(state, 1664525) + 1013904223) >>> 0) >>> 24;
  const names = Object.keys(expected);
  for (let round = 0; round < 600; ++round) {
    const bytes = Uint8Array.from({ length: 3000 }, random);
    const head = readFileSync(names[round % names.length]).subarray(0, round % 3 === 0 ? 0 : 4 + random());
    bytes.set(head);
    const picture = await outcome(decode(bytes, round % 2));
    assert.ok(picture !== 0, "the decoder stopped");
    assert.equal(typeof (await outcome(decode(readFileSync("corpus/bmp/mono.bmp")))), "object");
  }
});

test("arguments of any kind of buffer, and none that is not one", async () => {
  const file = readFileSync("corpus/bmp/mono.bmp");
  const buffer = file.buffer.slice(file.byteOffset, file.byteOffset + file.length);
  for (const bytes of [file, buffer, new DataView(buffer), new Uint8Array(file)]) {
    assert.equal((await decode(bytes)).width, 45);
  }
  await assert.rejects(decode("corpus/bmp/mono.bmp"), TypeError);
  await assert.rejects(decode(file, -1), RangeError);
  await assert.rejects(decode(file, 0.5), RangeError);
  await assert.rejects(decode(new Uint8Array(0)), TarnquillError);
});

test("calls at the same time do not disturb each other", async () => {
  const names = Object.keys(expected).filter((name) => typeof expected[name].whole.pages[0] === "object").slice(0, 40);
  const all = await Promise.all(names.map((name) => seen(readFileSync(name), 0)));
  for (const [i, name] of names.entries()) assert.deepEqual(all[i], expected[name].whole.pages[0], name);
});

// A bitmap's header alone says how large it is.
function bitmapOf(width, height) {
  const bytes = new Uint8Array(54 + 4);
  const view = new DataView(bytes.buffer);
  bytes.set([0x42, 0x4d]);
  view.setUint32(10, 54, true);
  view.setUint32(14, 40, true);
  view.setInt32(18, width, true);
  view.setInt32(22, height, true);
  view.setUint16(26, 1, true);
  view.setUint16(28, 24, true);
  return bytes;
}

test("a picture that is too large is an error, and memory is given back", async () => {
  await assert.rejects(decode(bitmapOf(60000, 60000)), { status: kOutOfMemory });
  const before = process.memoryUsage().arrayBuffers;
  for (let i = 0; i < 8; ++i) assert.equal((await decode(bitmapOf(4000, 4000))).width, 4000);
  globalThis.gc?.();
  assert.ok(process.memoryUsage().arrayBuffers - before < 700e6);
});
