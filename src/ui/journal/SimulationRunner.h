#pragma once

#include "journal/MonteCarloEngine.h"

#include <QObject>

#include <memory>
#include <optional>
#include <stop_token>

// Runs the Monte Carlo engine away from the main thread, one run at a time. A request made while a
// run is under way waits as the next one, replacing any request already waiting; a run whose
// request has been superseded reports nothing. So a burst of requests (a slider dragged across its
// range) costs at most the run in flight and the last one, and `finished` always carries the result
// of the latest request.
//
// A run can be stopped: the engine ends within milliseconds, and neither it nor the request
// waiting behind it reports anything. Destroying the runner stops a run still under way.
//
// Lives on the main thread; `finished` is emitted there.
class SimulationRunner : public QObject {
    Q_OBJECT
public:
    explicit SimulationRunner(QObject* parent = nullptr);
    ~SimulationRunner() override;

    void run(MonteCarloEngine::Config config);
    // Stops the run under way and forgets the one waiting; `finished` does not come for them.
    void stop();
    bool isRunning() const { return inFlight; }
    // Whether a result is still to come: a request was made and neither answered nor stopped.
    bool isBusy() const { return inFlight && deliveredRequest != latestRequest; }

signals:
    void finished(const std::optional<MonteCarloEngine::Result>& result);

private:
    struct Token {
        SimulationRunner* runner;
    };

    void start(MonteCarloEngine::Config config);
    void deliver(std::optional<MonteCarloEngine::Result> result, quint64 request);

    std::shared_ptr<Token> token;
    std::optional<MonteCarloEngine::Config> waiting;
    std::stop_source running; // of the run in flight
    quint64 latestRequest = 0;
    quint64 deliveredRequest = 0; // answered or stopped
    bool inFlight = false;
};
