#include "journal/TradeMatcher.h"

#include <algorithm>

TradeMatcher::TradeMatcher(std::vector<Span> spans)
{
    byEnd.reserve(spans.size());
    for (size_t i = 0; i < spans.size(); ++i) {
        const Span& s = spans[i];
        byEnd.push_back({ s.end, s.start, int(i) });
        longest = std::max(longest, s.end - s.start);
    }
    std::sort(byEnd.begin(), byEnd.end(),
        [](const Ending& a, const Ending& b) { return a.end < b.end || (a.end == b.end && a.index < b.index); });
}

int TradeMatcher::clipFor(double exitTime) const
{
    const auto first
        = std::lower_bound(byEnd.begin(), byEnd.end(), exitTime, [](const Ending& e, double t) { return e.end < t; });
    // Every span that holds the exit ends at or after it, and no later than the longest span after
    // it: the first of those that starts at or before the exit ended soonest.
    for (auto it = first; it != byEnd.end() && it->end - longest <= exitTime; ++it) {
        if (it->start <= exitTime) return it->index;
    }
    if (first != byEnd.end() && first->end - exitTime <= lateSeconds) return first->index;
    return -1;
}
