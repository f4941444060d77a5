#include "ui/journal/SimulationRunner.h"

#include "platform/ThreadPriority.h"

#include <QCoreApplication>
#include <QRunnable>
#include <QThreadPool>

namespace {

// The simulations' own threads: their priority is lowered for good (a thread cannot raise it back
// without privilege), so they are kept apart from the application's shared pool. Two, so that a
// new screen's first run need not wait for the run a closed screen left behind.
QThreadPool& simulationPool()
{
    static QThreadPool pool;
    pool.setMaxThreadCount(2);
    return pool;
}

} // namespace

SimulationRunner::SimulationRunner(QObject* parent)
    : QObject(parent)
    , token(std::make_shared<Token>(Token { this }))
{
}

SimulationRunner::~SimulationRunner() = default;

void SimulationRunner::run(MonteCarloEngine::Config config)
{
    ++latestRequest;
    if (inFlight) {
        waiting = std::move(config);
        return;
    }
    start(std::move(config));
}

void SimulationRunner::start(MonteCarloEngine::Config config)
{
    inFlight = true;
    const quint64 request = latestRequest;
    // The worker holds only a weak reference: the answer is posted to the application object and
    // finds the runner there only if the runner still exists, which is checked on the main thread.
    std::weak_ptr<Token> weak = token;
    simulationPool().start([config = std::move(config), weak, request] {
        // The run yields to the window: its thread (and the engine's helpers, which inherit it)
        // runs at a lower priority than the main thread, so a loaded machine still draws and
        // answers while a large run is under way.
        ThreadPriority::lowerCurrentThreadToBackground();
        std::optional<MonteCarloEngine::Result> result = MonteCarloEngine::simulate(config);
        QCoreApplication* app = QCoreApplication::instance();
        if (!app) return;
        QMetaObject::invokeMethod(
            app,
            [weak, request, result = std::move(result)]() mutable {
                if (std::shared_ptr<Token> alive = weak.lock()) alive->runner->deliver(std::move(result), request);
            },
            Qt::QueuedConnection);
    });
}

void SimulationRunner::deliver(std::optional<MonteCarloEngine::Result> result, quint64 request)
{
    inFlight = false;
    if (waiting) {
        MonteCarloEngine::Config next = std::move(*waiting);
        waiting.reset();
        start(std::move(next));
    }
    if (request == latestRequest) emit finished(result);
}
