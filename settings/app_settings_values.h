#pragma once

#include "settings/app_settings_document.h"

#include <optional>

namespace nimbrale {

/// How a value of a setting's type stands in the file. There is one pair of these for each type that a setting has: a
/// 64-bit integer, a Boolean, a double, a text, bytes, and the enumerations of AppSettings by the names of their cases.
template <typename Type>
[[nodiscard]] SettingsDocument::Value storedForm(const Type& value);

/// The value that a stored form stands for; absent when it is not wholly one of that type.
/// - Integers: decimal digits with an optional minus sign, within 64 bits.
/// - Booleans: "true" or "false". Numbers are not taken for Booleans: they are never written for one.
/// - Doubles: a decimal number, with an exponent or without; finite.
/// - Enumerations: the name of a case, compared exactly.
template <typename Type>
[[nodiscard]] std::optional<Type> valueOfStoredForm(const SettingsDocument::Value& stored);

} // namespace nimbrale
