#pragma once

class QWidget;

// The kit's look for a text field or a multi-line editor (QLineEdit, QPlainTextEdit): text in `fg`
// on a `bgInset` plate with a hairline of `line` and a corner radius of 6, the placeholder in
// `fgFaint`, the hairline in `accent` while the field has the keyboard. The colours follow the
// appearance by themselves.
namespace V3Field {

void install(QWidget* field);

} // namespace V3Field
