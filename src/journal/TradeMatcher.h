#pragma once

#include <vector>

// Which clip saw a trade. A clip covers the span from its save time minus its length up to its save
// time; a trade belongs to the clip whose span holds its exit time (of several, the one that ended
// first after it), else to the clip whose span ends soonest after the exit, within
// `lateSeconds`: a clip saved a moment after the trade closed still shows the trade. Otherwise the
// trade has no clip.
//
// Pure; sorts once, then finds each trade's clip by binary search, so a hundred thousand trades
// against ten thousand clips take milliseconds.
class TradeMatcher {
public:
    static constexpr double lateSeconds = 60;

    struct Span {
        double start; // seconds since 2001-01-01 UTC
        double end;
    };

    explicit TradeMatcher(std::vector<Span> spans);

    // The index in the constructor's spans of the clip that saw a trade closing at `exitTime`, or -1.
    int clipFor(double exitTime) const;

private:
    struct Ending {
        double end;
        double start;
        int index;
    };
    std::vector<Ending> byEnd; // sorted by end, then index
    double longest = 0; // the longest span, which bounds how far past the exit a holding span can end
};
