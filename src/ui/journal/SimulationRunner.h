#pragma once

#include "journal/MonteCarloEngine.h"

#include <QObject>

#include <memory>
#include <optional>

// Runs the Monte Carlo engine away from the main thread, one run at a time. A request made while a
// run is under way waits as the next one, replacing any request already waiting; a run whose
// request has been superseded reports nothing. So a burst of requests (a slider dragged across its
// range) costs at most the run in flight and the last one, and `finished` always carries the result
// of the latest request.
//
// Lives on the main thread; `finished` is emitted there. Destroying the runner drops the result of
// a run still under way.
class SimulationRunner : public QObject {
    Q_OBJECT
public:
    explicit SimulationRunner(QObject* parent = nullptr);
    ~SimulationRunner() override;

    void run(MonteCarloEngine::Config config);
    bool isRunning() const { return inFlight; }

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
    quint64 latestRequest = 0;
    bool inFlight = false;
};
