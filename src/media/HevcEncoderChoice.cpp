#include "media/HevcEncoderChoice.h"

#include "core/Log.h"

#include <algorithm>

namespace {

const QString software = QStringLiteral("libx265");

std::vector<HevcEncoderProbe::Candidate> withSoftware(std::vector<HevcEncoderProbe::Candidate> list)
{
    const auto named
        = [](const QString& name) { return [name](const HevcEncoderProbe::Candidate& c) { return c.name == name; }; };
    if (std::none_of(list.begin(), list.end(), named(software))) {
        const std::vector<HevcEncoderProbe::Candidate> real = HevcEncoderProbe::candidates();
        list.push_back(*std::find_if(real.begin(), real.end(), named(software)));
    }
    return list;
}

} // namespace

HevcEncoderChoice::HevcEncoderChoice(std::vector<HevcEncoderProbe::Candidate> list)
    : candidates(withSoftware(std::move(list)))
{
}

const std::shared_ptr<HevcEncoderChoice>& HevcEncoderChoice::process()
{
    static const std::shared_ptr<HevcEncoderChoice> choice = std::make_shared<HevcEncoderChoice>();
    return choice;
}

QString HevcEncoderChoice::chosen()
{
    std::lock_guard busy(choosing);
    chooseIfNeeded();
    std::lock_guard lock(mutex);
    return choice->encoder;
}

std::optional<QString> HevcEncoderChoice::chosenSoFar() const
{
    std::lock_guard lock(mutex);
    if (!choice) return std::nullopt;
    return choice->encoder;
}

const HevcEncoderProbe::Candidate& HevcEncoderChoice::candidate(const QString& name) const
{
    const auto found = std::find_if(
        candidates.begin(), candidates.end(), [&](const HevcEncoderProbe::Candidate& c) { return c.name == name; });
    // The choice is always one of the candidates, or libx265, which is among them.
    return *found;
}

void HevcEncoderChoice::chooseIfNeeded()
{
    {
        std::lock_guard lock(mutex);
        if (choice) return;
    }
    const HevcEncoderProbe::Choice made = HevcEncoderProbe::probe(candidates);
    logLine(HevcEncoderProbe::describe(made));
    std::lock_guard lock(mutex);
    choice = made;
}

void HevcEncoderChoice::passOver(const QSize& size, const QString& failure)
{
    HevcEncoderProbe::Choice now;
    {
        std::lock_guard lock(mutex);
        choice->passedOver << QStringLiteral("%1: fails at %2x%3 (%4)")
                                  .arg(choice->encoder)
                                  .arg(size.width())
                                  .arg(size.height())
                                  .arg(failure);
        choice->encoder = software;
        now = *choice;
    }
    logLine(HevcEncoderProbe::describe(now));
}

std::unique_ptr<HevcEncoderProbe::Encoder> HevcEncoderChoice::open(
    const VideoEncoder::Settings& settings, QString* error)
{
    std::lock_guard busy(choosing);
    chooseIfNeeded();
    const QSize size(settings.width, settings.height);
    for (;;) {
        QString name;
        bool proven = false;
        {
            std::lock_guard lock(mutex);
            name = choice->encoder;
            proven = provenSizes.count({ size.width(), size.height() }) > 0;
        }
        const HevcEncoderProbe::Candidate& chosenOne = candidate(name);
        // libx265 is what is left: its failures are the writer's to report.
        if (name != software && !proven) {
            const int level = av_log_get_level();
            av_log_set_level(AV_LOG_QUIET);
            const QString failure = HevcEncoderProbe::check(chosenOne, settings);
            av_log_set_level(level);
            if (!failure.isEmpty()) {
                passOver(size, failure);
                continue;
            }
            std::lock_guard lock(mutex);
            provenSizes.insert({ size.width(), size.height() });
        }
        QString why;
        std::unique_ptr<HevcEncoderProbe::Encoder> encoder = chosenOne.open ? chosenOne.open(settings, &why) : nullptr;
        if (encoder || name == software) {
            if (!encoder && error) *error = why.isEmpty() ? QStringLiteral("does not open") : why;
            return encoder;
        }
        passOver(size, why.isEmpty() ? QStringLiteral("does not open") : why);
    }
}
