#pragma once

#include <QString>

#include <optional>

// The capture error that means the desktop refused access to the screen: the message when it
// speaks of a permission or of a request declined, in any case; otherwise none.
std::optional<QString> permissionError(const std::optional<QString>& errorMessage);
