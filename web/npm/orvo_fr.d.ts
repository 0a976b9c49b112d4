// SPDX-License-Identifier: MIT

/** Pixels row by row, without gaps. What a canvas' `getImageData()` gives is one. */
export interface Picture {
  /** 1 to 8192; faces are found in pictures of at least 24 x 24. */
  width: number;
  height: number;
  /** One byte a pixel (grey), three (red, green, blue) or four (and alpha, over black). */
  data: Uint8Array | Uint8ClampedArray;
}

export interface Point {
  x: number;
  y: number;
}

/** Why a face is not good to be recognised. */
export type Reason =
  | "small"
  | "blurred"
  | "dark"
  | "overexposed"
  | "turned"
  | "tilted"
  | "covered"
  | "cut off"
  | "grimacing";

/** A face that was found. Lengths are pixels of the picture; (0, 0) is its top left corner. */
export interface FoundFace {
  /** The square box; it may leave the picture. Of `faces()` it is what the recogniser sees. */
  left: number;
  top: number;
  side: number;
  /** How sure it is that this is a face, 0 to 1. */
  score: number;
  /** Pupil at the left of an upright picture, pupil at the right, tip of the nose, corners of the mouth. */
  points: Point[];
  /** Degrees that the face points to the right of the picture. */
  yaw: number;
  /** Degrees that the head leans to the right of the picture. */
  roll: number;
  /** Share of the face that something hides, 0 to 1. */
  covered: number;
  /** How good it is to be recognised, 0 to 100. */
  quality: number;
  /** Why it is not good; may be empty. */
  reasons: Reason[];
  /** Whether the quality is at least 30. Other faces are like too many people to be compared. */
  isGood: boolean;
  /** The box turned upright: 96 x 96 grey levels. */
  crop: Uint8Array;
  /** Null of `find()`. */
  feature: Float32Array | null;
}

/** A face that can be compared. */
export interface Face extends FoundFace {
  /** 128 numbers. */
  feature: Float32Array;
}

/** A picture, or a part of one, that one face fills. */
export interface WholeFace {
  feature: Float32Array;
  /** Where the alignment network saw the face; it may leave the picture. */
  box: { left: number; top: number; right: number; bottom: number };
  /** What the recogniser sees: 96 x 96 grey levels. */
  crop: Uint8Array;
}

export interface FindOptions {
  /**
   * Side of the smallest face to look for, in pixels. Without it faces from 20 pixels on are found in
   * pictures of up to 1280 pixels a side, from 40 in twice as large ones, and so on. The larger, the faster.
   */
  smallest?: number;
  /** Faces to be returned, 1 to 64, which it is without; the best are taken. */
  most?: number;
}

/** Calls are synchronous; wrong arguments throw a RangeError or a TypeError. */
export interface Library {
  /** The faces in a whole picture, best first, without features. */
  find(picture: Picture, options?: FindOptions): FoundFace[];
  /** The faces in a whole picture, best first, each with the feature of the face turned upright. */
  faces(picture: Picture, options?: FindOptions): Face[];
  /**
   * The feature of a picture, or a part of it, that one face fills. Nobody looks whether there is a face:
   * null only where there is no structure at all, as on a wall.
   */
  extract(
    picture: Picture,
    part?: { left: number; top: number; width: number; height: number },
  ): WholeFace | null;
  /** The score of two features: 1 for the same picture twice, the larger the more alike. */
  distance(a: ArrayLike<number>, b: ArrayLike<number>): number;
  /** The smallest part that `extract()` takes. */
  readonly smallest: { width: number; height: number };
}

/**
 * Opens the library: compiles the module and opens the models, once for each object that it promises.
 *
 * @param module the bytes of `orvo_fr.wasm`, where the application brings them along in its own way
 */
export function open(module?: BufferSource | Promise<BufferSource>): Promise<Library>;

/** A share and its 95 % interval. */
export interface Rate {
  rate: number;
  interval: [number, number];
}

export interface Threshold {
  false_accept_rate: number;
  /** Scores from here on count as the same person. */
  threshold: number;
  false_accepts: Rate;
  false_rejects: Rate;
  /** Whether it hangs on few pairs. */
  rough: boolean;
}

/** Thresholds that were measured with these models on real faces; null where nobody did. */
export const thresholds: {
  measured_on: string;
  people: number;
  pictures: number;
  pairs_of_one_person: number;
  pairs_of_two_people: number;
  warning: string;
  at: Threshold[];
} | null;
