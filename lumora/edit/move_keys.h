// Moving keys of a TparamCurve in time and value.
//
// The operations are members of TparamCurve (declared in param_curve.h,
// defined in move_keys.cpp); this header tells how they fit together.
//
// A one-shot move of a selection opens and closes its own edit:
//
//   curve.moveKeys(picks, TtimeValue(0.5f), 2.0, /*relative=*/true,
//                  TparamCurve::kMoveKeepOrder, /*moveBreakdowns=*/true,
//                  /*setTime=*/true, /*setValue=*/true);
//
// An interactive drag opens the edit once, moves many times measured from
// where the keys started, and closes it; recorded as one action, one undo
// puts every key back:
//
//   TparamCurveDeltaUser action;
//   action.beginParamCurveMod(curve);
//   curve.beginEdit(TparamCurve::kEditMoveKeys, handles);
//   TtimeValueArray starts;                       // by pick index: handle order
//   for (unsigned i = 0; i < handles.count(); ++i) starts.addLast(handles[i]->timeValue());
//   for (float dx : pointerOffsets)               // offsets from the start, not steps
//     curve.moveKeys(handles, starts, TtimeValue(dx), 0.0, TparamCurve::kMovePass,
//                    true, /*relative=*/true, /*setTime=*/true, /*setValue=*/false);
//   curve.endEdit();
//   action.endParamCurveMod(curve);
//   action.undoPC();                              // the keys as they were, bit for bit
//
// Things that surprise people:
//  * kMoveKeepOrder and kMoveRipple never let a key pass or reach another:
//    a key moved too far stops one tick short of its neighbour (1/6000 s,
//    in single precision on float curves), and a block stops packed a tick
//    apart. canMove tells beforehand whether that would happen.
//  * An absolute move (relative false, setTime true) is for one key: the
//    dictionary form refuses several keys with kMoveKeepOrder and kMovePass
//    and any key with kMoveRipple and kMovePassRelative; the drag form
//    accepts it only for one handle with kMovePass.
//  * The drag form and the newTimes form need the move edit open
//    (beginEdit(kEditMoveKeys, ...)); without one they refuse. Pick indices
//    tie the move list to the caller's arrays: the position among the key
//    picks of the selection, or the position in the handle array.
//  * Breakdown keys between moved keys follow them when moveBreakdowns is
//    true (see breakdown.h); they keep their values.
//  * Relative value offsets in the drag form add to the keys' current values
//    at each call: pass the value step, or move values with setValue.
//  * The dictionary-move flag is 1 while a dictionary move of a curve with
//    quaternion rotation interpolation runs: its drag records are then
//    appended whole instead of merging with earlier drags of the action,
//    because the merge rule compares times and values but not W.
//  * While a curve records, its moves note the full states of the keys they
//    change, shared by the drag records of the modification; undoing the
//    action puts every key back bit for bit, tangents and flags included,
//    in one pass. Any other recorded edit ends such a run of moves: drags
//    on either side of it stay separate records (they do not merge across
//    it), so that undo passes through that edit's own state exactly.
//  * generateDeltasForMove records the undo of a move made while the curve
//    was not recording: call it with the move edit still open, the keys'
//    start times and values (by pick index), while recording. A rigid shift
//    of the picked keys becomes one TPCDdragSegment, anything else one
//    TPCDdragKey per key. Tangents need no record of their own: a move
//    leaves fixed sides alone and automatic sides follow the keys back.
//  * The quaternion forms move the curve's own component of the rotation
//    and store W until rotation interpolation brings the conversion between
//    quaternions and Euler angles.
//  * TkeyframeMovedMsg is sent to the curve's clients for each key whose
//    time changed, only when a client registered for it.
//  * From inside one of the curve's own messages every move, and beginEdit,
//    endEdit, beginMoveKeys and endMoveKeys, refuse (the move under way is
//    using the move list).
#pragma once

#include "lumora/curve/param_curve.h"
