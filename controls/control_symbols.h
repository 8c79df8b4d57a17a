#pragma once

#include <QPainterPath>

namespace nimbrale {

/// What the controls on the screen show.
enum class ControlSymbol { move, close, settings, resize, record, stopRecording };

/// The filled outline of a symbol in bold weight, centred on the origin, in points, y downward. `pointSize` is that of
/// text which the symbol would stand beside.
[[nodiscard]] QPainterPath controlSymbolPath(ControlSymbol symbol, double pointSize);

} // namespace nimbrale
