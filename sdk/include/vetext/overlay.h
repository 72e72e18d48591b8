/* The Text effect's Transform box in the host's viewer: its twelve hit zones and the cursor code
 * the effect asks for over each (the EventRecord's cursor field on an adjust-cursor event).
 *
 * The box is the text's layout bounds placed as the render places them (Position, Anchor Point,
 * Scale, Horizontal Scale, Rotation, the layer's pixel aspect), converted to viewer pixels
 * through the host's layer_to_viewer callback. Hit radii are viewer pixels, so the box works at
 * any zoom. When zones overlap the first in this order wins: the anchor mark, the corners, the
 * rotation knob, the edge midpoints, the inside, the rotation ring.
 *
 * Zones of one pair share a cursor: the two diagonals of the corners, the two axes of the edges.
 */
#ifndef VETEXT_OVERLAY_H
#define VETEXT_OVERLAY_H

#ifdef __cplusplus
extern "C" {
#endif

enum {
  kZoneNone = 0,
  kZoneTopLeft = 1,     /* corner handle, scales about the anchor; cursor 25 (diagonal \) */
  kZoneTopRight = 2,    /* corner handle; cursor 27 (diagonal /) */
  kZoneBottomLeft = 3,  /* corner handle; cursor 27 (diagonal /) */
  kZoneBottomRight = 4, /* corner handle; cursor 25 (diagonal \) */
  kZoneLeft = 5,        /* edge midpoint, horizontal scale; cursor 24 (left-right) */
  kZoneRight = 6,       /* edge midpoint; cursor 24 (left-right) */
  kZoneTop = 7,         /* edge midpoint, vertical scale; cursor 26 (up-down) */
  kZoneBottom = 8,      /* edge midpoint; cursor 26 (up-down) */
  kZoneInside = 9,      /* inside the box: moves Position; cursor 35 (move) */
  kZoneAnchor = 10,     /* the anchor mark: moves Anchor Point; cursor 29 (crosshair) */
  kZoneRotate = 11,     /* just outside the box: rotates about the anchor; cursor 33 */
  kZoneRotateKnob = 12  /* the knob above the top edge: rotates about the anchor; cursor 31 */
};

/* Hit radii and distances, in viewer pixels. */
#define kZoneHandleRadius 6.0   /* corners, edge midpoints, the knob and the anchor mark */
#define kZoneRotateReach 20.0   /* how far outside the box the rotation ring reaches */
#define kZoneKnobDistance 24.0  /* the knob's distance above the top edge's midpoint */

#ifdef __cplusplus
}
#endif

#endif
