#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>

// The value stream of an observable property, with the few operators the controller needs.
//
// A subscriber receives the property's current value at once, then every change (which is why most
// subscriptions start with dropFirst()). A subscription lives as long as its context object: it
// ends when the context or the observed object is destroyed. Everything runs on the thread of the
// context, which is the main thread for every model in the program.
template <typename T> class Publisher {
public:
    using Sink = std::function<void(const T&)>;
    using Subscribe = std::function<void(QObject* context, Sink sink)>;

    explicit Publisher(Subscribe subscribe)
        : subscribeFn(std::move(subscribe))
    {
    }

    void sink(QObject* context, Sink sink) const { subscribeFn(context, std::move(sink)); }

    // Skips the first `count` values (the current value that every subscription starts with).
    Publisher dropFirst(int count = 1) const
    {
        return Publisher([up = subscribeFn, count](QObject* context, Sink sink) {
            auto skipped = std::make_shared<int>(0);
            up(context, [skipped, count, sink](const T& value) {
                if (*skipped < count) {
                    ++*skipped;
                    return;
                }
                sink(value);
            });
        });
    }

    // Passes a value only when it differs from the one passed before it.
    Publisher removeDuplicates() const
    {
        return Publisher([up = subscribeFn](QObject* context, Sink sink) {
            auto last = std::make_shared<std::optional<T>>();
            up(context, [last, sink](const T& value) {
                if (*last && **last == value) return;
                *last = value;
                sink(value);
            });
        });
    }

    // Passes the newest value once no other has arrived for `interval`, timed on the context's
    // event loop.
    Publisher debounce(std::chrono::milliseconds interval) const
    {
        return Publisher([up = subscribeFn, interval](QObject* context, Sink sink) {
            struct State {
                QPointer<QTimer> timer;
                std::optional<T> pending;
            };
            auto state = std::make_shared<State>();
            auto* timer = new QTimer(context);
            timer->setSingleShot(true);
            timer->setInterval(interval);
            state->timer = timer;
            QObject::connect(timer, &QTimer::timeout, context, [state, sink] {
                if (!state->pending) return;
                T value = std::move(*state->pending);
                state->pending.reset();
                sink(value);
            });
            up(context, [state](const T& value) {
                if (!state->timer) return;
                state->pending = value;
                state->timer->start();
            });
        });
    }

    template <typename F> auto map(F transform) const -> Publisher<std::decay_t<std::invoke_result_t<F, const T&>>>
    {
        using U = std::decay_t<std::invoke_result_t<F, const T&>>;
        return Publisher<U>([up = subscribeFn, transform](QObject* context, typename Publisher<U>::Sink sink) {
            up(context, [transform, sink](const T& value) { sink(transform(value)); });
        });
    }

private:
    Subscribe subscribeFn;
};

// The publisher of a Q_PROPERTY: its getter and its NOTIFY signal.
//   observe(settings, &AppSettings::frameRate, &AppSettings::frameRateChanged)
template <typename Obj, typename Getter, typename Signal> auto observe(Obj* object, Getter getter, Signal changed)
{
    using T = std::decay_t<std::invoke_result_t<Getter, Obj*>>;
    QPointer<Obj> weak(object);
    return Publisher<T>([weak, getter, changed](QObject* context, typename Publisher<T>::Sink sink) {
        Obj* obj = weak.data();
        if (!obj) return;
        sink(std::invoke(getter, obj));
        QObject::connect(obj, changed, context, [weak, getter, sink] {
            if (Obj* o = weak.data()) sink(std::invoke(getter, o));
        });
    });
}

// Combines the newest value of each publisher; delivers once every publisher has given a value, and
// then on each change of any of them. With publishers that start with their current value this gives
// one value at once.
template <typename... Ts> Publisher<std::tuple<Ts...>> combineLatest(Publisher<Ts>... publishers)
{
    using Tuple = std::tuple<Ts...>;
    return Publisher<Tuple>([publishers...](QObject* context, typename Publisher<Tuple>::Sink sink) {
        auto latest = std::make_shared<std::tuple<std::optional<Ts>...>>();
        auto emitIfComplete = [latest, sink] {
            const bool complete = std::apply([](const auto&... v) { return (v.has_value() && ...); }, *latest);
            if (complete) sink(std::apply([](const auto&... v) { return Tuple(*v...); }, *latest));
        };
        [&]<size_t... I>(std::index_sequence<I...>)
        {
            (std::get<I>(std::forward_as_tuple(publishers...))
                    .sink(context,
                        [latest, emitIfComplete](const auto& value) {
                            std::get<I>(*latest) = value;
                            emitIfComplete();
                        }),
                ...);
        }
        (std::index_sequence_for<Ts...>());
    });
}
