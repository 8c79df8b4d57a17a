#pragma once

#include <QPainterPath>
#include <string>

namespace nimbrale {

/// What the controls on the screen show.
enum class ControlSymbol { move, close, settings, resize, record, stopRecording };

/// The filled outline of a symbol in bold weight, centred on the origin, in points, y downward. `pointSize` is that of
/// text which the symbol would stand beside.
[[nodiscard]] QPainterPath controlSymbolPath(ControlSymbol symbol, double pointSize);

/// The `pointSize` at which controls show the symbol.
[[nodiscard]] double controlSymbolSize(ControlSymbol symbol);

/// What a control with that symbol does, for tips and assistive technology: UTF-8, translated.
[[nodiscard]] std::string controlDescription(ControlSymbol symbol);

} // namespace nimbrale
