#include "media/HevcEncoderProbe.h"

#include <QDir>

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/error.h>
}

namespace {

// A hardware encoder as it breaks on real machines: it won't open, it opens and fails on the first
// or the second picture, or it takes pictures and never gives a packet.
class FakeEncoder : public HevcEncoderProbe::Encoder {
public:
    enum class Fault { none, firstPicture, secondPicture, noPackets };
    explicit FakeEncoder(Fault fault)
        : fault(fault)
    {
    }
    int send(const QImage&, int64_t, bool, const PacketSink& sink, const std::vector<QRect>*) override
    {
        ++pictures;
        if ((fault == Fault::firstPicture && pictures == 1) || (fault == Fault::secondPicture && pictures == 2))
            return AVERROR(EIO);
        return fault == Fault::noPackets ? 0 : sink(nullptr);
    }
    int finish(const PacketSink&) override { return 0; }
    const AVCodecContext* context() const override { return nullptr; }

private:
    Fault fault;
    int pictures = 0;
};

HevcEncoderProbe::Candidate fake(const char* name, FakeEncoder::Fault fault)
{
    return { QString::fromLatin1(name),
        [fault](const VideoEncoder::Settings&, QString*) { return std::make_unique<FakeEncoder>(fault); } };
}

HevcEncoderProbe::Candidate failsToOpen(const char* name)
{
    return { QString::fromLatin1(name),
        [](const VideoEncoder::Settings&, QString* error) -> std::unique_ptr<HevcEncoderProbe::Encoder> {
            *error = QStringLiteral("no VAAPI device: Input/output error");
            return nullptr;
        } };
}

HevcEncoderProbe::Candidate realLibx265()
{
    for (const HevcEncoderProbe::Candidate& c : HevcEncoderProbe::candidates())
        if (c.name == QLatin1String("libx265")) return c;
    return {};
}

} // namespace

TEST(HevcEncoderProbe, BrokenHardwareEncodersArePassedOverForSoftware)
{
    using Fault = FakeEncoder::Fault;
    const HevcEncoderProbe::Choice choice
        = HevcEncoderProbe::probe({ failsToOpen("hevc_vaapi"), fake("hevc_nvenc", Fault::firstPicture),
            fake("hevc_qsv", Fault::secondPicture), fake("hevc_silent", Fault::noPackets), realLibx265() });
    EXPECT_EQ(choice.encoder, QStringLiteral("libx265"));
    EXPECT_EQ(HevcEncoderProbe::describe(choice).toStdString(),
        "Video encoder: libx265 (passed over hevc_vaapi: no VAAPI device: Input/output error; "
        "hevc_nvenc: opens, but picture 1 fails: Input/output error; "
        "hevc_qsv: opens, but picture 2 fails: Input/output error; "
        "hevc_silent: opens, but gives no packets)");

    // A working hardware encoder is taken before software, and nothing after it is tried.
    const HevcEncoderProbe::Choice hardware = HevcEncoderProbe::probe(
        { failsToOpen("hevc_vaapi"), fake("hevc_nvenc", Fault::none), fake("libx265", Fault::firstPicture) });
    EXPECT_EQ(hardware.encoder, QStringLiteral("hevc_nvenc"));
    EXPECT_EQ(hardware.passedOver.size(), 1);

    // When nothing works the writer still gets libx265, and the line says why each failed.
    const HevcEncoderProbe::Choice nothing = HevcEncoderProbe::probe({ fake("libx265", Fault::firstPicture) });
    EXPECT_EQ(nothing.encoder, QStringLiteral("libx265"));
    EXPECT_EQ(nothing.passedOver.size(), 1);
}

TEST(HevcEncoderProbe, WithoutAGpuTheRealProbeChoosesLibx265)
{
    if (QDir(QStringLiteral("/dev/dri")).exists() || QDir(QStringLiteral("/dev")).entryList({ "nvidia*" }).size() > 0)
        GTEST_SKIP() << "this machine has a GPU: the choice depends on its driver";
    const HevcEncoderProbe::Choice choice = HevcEncoderProbe::probe(HevcEncoderProbe::candidates());
    EXPECT_EQ(choice.encoder, QStringLiteral("libx265"));
    ASSERT_EQ(choice.passedOver.size(), 3) << HevcEncoderProbe::describe(choice).toStdString();
    EXPECT_TRUE(choice.passedOver[0].startsWith(QStringLiteral("hevc_vaapi: ")));
    EXPECT_TRUE(choice.passedOver[1].startsWith(QStringLiteral("hevc_nvenc: ")));
    EXPECT_TRUE(choice.passedOver[2].startsWith(QStringLiteral("hevc_qsv: ")));
}
