/** What a file says of one of its pages. */
export interface Info {
  /** A short name of the format and its compression: "tiff-g4"; "" for what has none. */
  format: string;
  pages: number;
  /** Pixels, as the picture is seen: turned as its file says. */
  width: number;
  height: number;
  /** A pixel has in the file (info) or in memory (decode). */
  bits: number;
  /** Dots per inch across and down, which may differ; null when the file does not say. */
  dpi: { x: number; y: number } | null;
}

export interface Picture extends Info {
  /** Red, green, blue and opacity of each pixel from the top left: new ImageData(rgba, width, height). */
  rgba: Uint8ClampedArray;
  /** Only of a file that is damaged: what happened to it. */
  damage?: string;
  /** Then: the rows that are not as they were, in the picture as its file has it; -1 for none. */
  damagedRows?: { first: number; last: number };
}

/** A file that cannot be read. */
export class TarnquillError extends Error {
  /** The library's status code, below 0; 0 when the decoder itself stopped. */
  readonly status: number;
}

export type Bytes = ArrayBuffer | ArrayBufferView;

/** Decodes a page, counted from 0. */
export function decode(bytes: Bytes, page?: number): Promise<Picture>;

/** Asks about a page without decoding it. */
export function info(bytes: Bytes, page?: number): Promise<Info>;
