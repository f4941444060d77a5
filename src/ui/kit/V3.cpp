#include "ui/kit/V3.h"

#include "ui/kit/Srgb.h"

namespace {

constexpr DynamicColor dyn(double dr, double dg, double db, double lr, double lg, double lb)
{
    return { Srgb::color(dr, dg, db), Srgb::color(lr, lg, lb) };
}

constexpr QColor fixed(double r, double g, double b, double opacity)
{
    return Srgb::color(r, g, b, opacity);
}

} // namespace

namespace V3 {

constinit const DynamicColor bg = dyn(0.087, 0.102, 0.158, 0.963, 0.966, 0.975);
constinit const DynamicColor bgElev = dyn(0.124, 0.144, 0.212, 0.942, 0.946, 0.958);
constinit const DynamicColor bgInset = dyn(0.062, 0.077, 0.126, 0.900, 0.905, 0.918);
constinit const DynamicColor bgCard = dyn(0.110, 0.128, 0.192, 0.976, 0.979, 0.988);
constinit const DynamicColor line = dyn(0.232, 0.254, 0.330, 0.832, 0.838, 0.855);
constinit const DynamicColor lineSoft = dyn(0.192, 0.212, 0.284, 0.868, 0.873, 0.888);
constinit const DynamicColor fg = dyn(0.962, 0.965, 0.978, 0.188, 0.194, 0.214);
constinit const DynamicColor fgMute = dyn(0.700, 0.710, 0.740, 0.349, 0.355, 0.376);
constinit const DynamicColor fgFaint = dyn(0.520, 0.530, 0.562, 0.523, 0.528, 0.549);
constinit const DynamicColor fgDim = dyn(0.382, 0.392, 0.430, 0.690, 0.691, 0.700);
constinit const DynamicColor rec = dyn(0.870, 0.290, 0.215, 0.770, 0.205, 0.155);
constinit const DynamicColor match = dyn(0.430, 0.748, 0.560, 0.290, 0.560, 0.400);
constinit const DynamicColor alert = dyn(0.920, 0.660, 0.300, 0.810, 0.535, 0.230);
constinit const DynamicColor accent = dyn(0.255, 0.545, 0.980, 0.145, 0.420, 0.945);

constinit const QColor recGlow = fixed(0.87, 0.29, 0.215, 0.45);
constinit const QColor matchSoft = fixed(0.43, 0.748, 0.56, 0.2);
constinit const QColor alertSoft = fixed(0.92, 0.66, 0.3, 0.2);
constinit const QColor accentSoft = fixed(0.255, 0.545, 0.98, 0.2);
constinit const QColor accentGlow = fixed(0.255, 0.545, 0.98, 0.55);

} // namespace V3
