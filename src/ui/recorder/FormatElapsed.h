#pragma once

#include <QString>

// The recording timer's text: "mm:ss.hh" under an hour (75.5 s reads "01:15.50"), "h:mm:ss"
// from an hour on, the hundredths cut off, never rounded up. A negative or undefined time reads as
// none at all.
QString formatElapsed(double seconds);
