// Lumora: every public header in one include.
//
//   #include <lumora/lumora.h>
//
//   lumora::TparamCurve curve(/*isFloat=*/true);
#pragma once

#include "lumora/base/angle.h"
#include "lumora/base/arena.h"
#include "lumora/base/array.h"
#include "lumora/base/bit_field.h"
#include "lumora/base/client_server.h"
#include "lumora/base/debug_output.h"
#include "lumora/base/dictionary.h"
#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/preference.h"
#include "lumora/base/ptr_array.h"
#include "lumora/base/quaternion.h"
#include "lumora/base/server_msg.h"
#include "lumora/base/sorted_array.h"
#include "lumora/base/string.h"
#include "lumora/base/time_arrays.h"
#include "lumora/base/time_value.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/bezier_segment_evaluator.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/reference_curves.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_group.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/delta.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/notify/param_curve_msgs.h"
#include "lumora/prefs/pref_keyframe.h"
#include "lumora/select/pick_key.h"
