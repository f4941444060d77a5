#include "capture/WindowListFilter.h"

#include <QCollator>
#include <QHash>

#include <algorithm>

namespace WindowListFilter {

namespace {

bool passes(const CaptureWindow& window, const QString& ownBundleIdentifier, const SystemRules& rules)
{
    if (window.windowLayer != 0 || !window.isOnScreen) return false;
    if (window.frame.width() < 150 || window.frame.height() < 80) return false;
    if (!window.title || window.title->isEmpty()) return false;
    if (!window.owningApplication) return false;
    const QString& bundle = window.owningApplication->bundleIdentifier;
    if (!ownBundleIdentifier.isEmpty() && bundle == ownBundleIdentifier) return false;
    if (rules.bundleIdentifiers.contains(bundle, Qt::CaseSensitive)) return false;
    for (const QString& prefix : rules.titlePrefixes)
        if (window.title->startsWith(prefix, Qt::CaseSensitive)) return false;
    return true;
}

double area(const CaptureWindow& window)
{
    return window.frame.width() * window.frame.height();
}

} // namespace

std::vector<CaptureWindow> pickable(
    const std::vector<CaptureWindow>& windows, const QString& ownBundleIdentifier, const SystemRules& rules)
{
    std::vector<CaptureWindow> chosen;
    QHash<QString, size_t> indexOfBundle;
    for (const CaptureWindow& window : windows) {
        if (!passes(window, ownBundleIdentifier, rules)) continue;
        const QString& bundle = window.owningApplication->bundleIdentifier;
        auto found = indexOfBundle.constFind(bundle);
        if (found == indexOfBundle.constEnd()) {
            indexOfBundle.insert(bundle, chosen.size());
            chosen.push_back(window);
        } else if (area(window) > area(chosen[*found])) {
            chosen[*found] = window;
        }
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(chosen.begin(), chosen.end(), [&collator](const CaptureWindow& a, const CaptureWindow& b) {
        return collator.compare(a.owningApplication->applicationName, b.owningApplication->applicationName) < 0;
    });
    return chosen;
}

} // namespace WindowListFilter
