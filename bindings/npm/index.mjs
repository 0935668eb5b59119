// Decodes raster images, fax pages, DCX and TIFF among them, by the library's WebAssembly build.

const kPixelBytes = 4;
const kLastPage = 0x7fffffff;
const kOutOfMemory = -1;
const kLargestKept = 64 << 20; // memory grows and never shrinks: an instance with more is not used again

/** What a file could not be read for; `status` is the library's number, or 0 when it gave up itself. */
export class TarnquillError extends Error {
  constructor(text, status) {
    super(text);
    this.name = "TarnquillError";
    this.status = status;
  }
}

// ---- The module

async function load() {
  const url = new URL("tarnquill.wasm", import.meta.url);
  if (url.protocol !== "file:") {
    const response = await fetch(url);
    if (!response.ok) throw new Error(`${url}: ${response.status}`);
    return WebAssembly.compile(await response.arrayBuffer());
  }
  const { readFile } = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:fs/promises");
  return WebAssembly.compile(await readFile(url));
}

let loading = null;

function compiled() {
  loading ??= load();
  loading.catch(() => {
    loading = null; // the next call tries again
  });
  return loading;
}

const kJump = Symbol("longjmp");
const kNoSystem = 52; // ENOSYS

// What the module asks for: a way to call functions that a jump may leave, and a system, of which there is none.
function imports(module, instance) {
  let high = 0; // the upper half of a 64-bit result
  const known = {
    _emscripten_throw_longjmp() {
      throw kJump;
    },
    setTempRet0(value) {
      high = value;
    },
    getTempRet0: () => high,
    emscripten_notify_memory_growth() {},
    proc_exit() {
      throw new Error("exit");
    },
  };
  const call = (index, ...values) => {
    const { __indirect_function_table: table, stackSave, stackRestore, setThrew } = instance().exports;
    const stack = stackSave();
    try {
      return table.get(index)(...values);
    } catch (thrown) {
      if (thrown !== kJump) throw thrown;
      stackRestore(stack);
      setThrew(1, 0);
      return undefined;
    }
  };
  const found = {};
  for (const { module: space, name } of WebAssembly.Module.imports(module)) {
    found[space] ??= {};
    found[space][name] = known[name] ?? (name.startsWith("invoke_") ? call : () => kNoSystem);
  }
  return found;
}

async function instantiate() {
  const module = await compiled();
  let instance = null;
  instance = await WebAssembly.instantiate(module, imports(module, () => instance));
  const { exports } = instance;
  exports._initialize?.();
  exports.start();
  return exports;
}

let kept = null; // an instance between two calls

// ---- What it says

function textAt(exports, address, room = 1024) {
  const bytes = new Uint8Array(exports.memory.buffer, address);
  const end = bytes.subarray(0, room).indexOf(0);
  return String.fromCharCode(...bytes.subarray(0, end < 0 ? room : end));
}

function statusText(exports, status) {
  return textAt(exports, exports.status_text(status));
}

function check(exports, status) {
  if (status < 0) throw new TarnquillError(statusText(exports, status), status);
  return status;
}

const kFields = ["width", "height", "bits", "xResolution", "yResolution", "pages", "damage", "damagedRows",
  "firstDamaged", "lastDamaged"];

function found(exports) {
  const address = exports.found_address();
  const numbers = new Int32Array(exports.memory.buffer, address, kFields.length);
  const fields = Object.fromEntries(kFields.map((name, i) => [name, numbers[i]]));
  const { width, height, bits, xResolution, yResolution, pages } = fields;
  const dpi = xResolution > 0 && yResolution > 0 ? { x: xResolution / 1000, y: yResolution / 1000 } : null;
  const format = textAt(exports, address + 4 * kFields.length, 16);
  return { fields, said: { format, pages, width, height, bits, dpi } };
}

function bytesOf(data) {
  if (data instanceof ArrayBuffer) return new Uint8Array(data);
  if (ArrayBuffer.isView(data)) return new Uint8Array(data.buffer, data.byteOffset, data.byteLength);
  throw new TypeError("not an ArrayBuffer or a view of one");
}

// ---- Calls

// Calls `work` with an instance that has a copy of the file. It is kept only if nothing went wrong in it.
async function use(data, page, work) {
  const bytes = bytesOf(data);
  if (!Number.isInteger(page) || page < 0 || page > kLastPage) throw new RangeError(`no number of a page: ${page}`);
  const exports = kept ?? (await instantiate());
  kept = null;
  let address = 0;
  const keep = () => {
    exports.release(address);
    if (exports.memory.buffer.byteLength <= kLargestKept) kept = exports;
  };
  try {
    address = exports.allocate(Math.max(bytes.length, 1));
    if (address === 0) check(exports, kOutOfMemory);
    new Uint8Array(exports.memory.buffer, address, bytes.length).set(bytes);
    const result = work(exports, address, bytes.length);
    keep();
    return result;
  } catch (thrown) {
    if (thrown instanceof TarnquillError) {
      keep();
      throw thrown;
    }
    // A trap, or no memory for the result: what is in the instance cannot be relied on.
    throw new TarnquillError(`the decoder stopped: ${thrown.message}`, 0);
  }
}

/**
 * Decodes a page, counted from 0. Partial pictures come with `damage`, which says what happened to the file, and
 * `damagedRows`; rows that could not be read are white or black.
 */
export async function decode(bytes, page = 0) {
  return use(bytes, page, (exports, address, size) => {
    try {
      const most = check(exports, exports.open_page(address, size, page));
      const { said, fields } = found(exports);
      const rowBytes = kPixelBytes * said.width;
      const rgba = new Uint8ClampedArray(rowBytes * said.height);
      for (let y = 0; y < said.height; y += most) {
        const rows = Math.min(most, said.height - y);
        check(exports, exports.render(y, rows));
        rgba.set(new Uint8Array(exports.memory.buffer, exports.band_address(), rows * rowBytes), y * rowBytes);
      }
      if (fields.damage === 0) return { ...said, rgba };
      const damage = statusText(exports, fields.damage);
      return { ...said, rgba, damage, damagedRows: { first: fields.firstDamaged, last: fields.lastDamaged } };
    } finally {
      exports.close_page();
    }
  });
}

/** What a file says of a page without decoding it. */
export async function info(bytes, page = 0) {
  return use(bytes, page, (exports, address, size) => {
    check(exports, exports.ask(address, size, page));
    return found(exports).said;
  });
}
