#include "devices/MicGainControl.h"
#include "recorder/AudioMixer.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

// The cost of one second of 48 kHz microphone audio through the gain control, in the 20 ms buffers
// the sound server delivers, with a voice loud enough that part of it goes through the knee; and
// the mix of a second of 48 kHz stereo system audio with it.
namespace {

constexpr int rate = 48000;
constexpr int bufferFrames = 960;
constexpr int buffersPerSecond = rate / bufferFrames;

template <typename T> std::vector<T> voice(double fullScale)
{
    std::vector<T> out(static_cast<size_t>(rate));
    for (int i = 0; i < rate; ++i) {
        // A tone whose loudness swells, so that the gain moves and the knee has work.
        const double v = (0.2 + 0.8 * std::fabs(std::sin(M_PI * i / rate))) * std::sin(2 * M_PI * 220 * i / rate);
        out[size_t(i)] = T(v * fullScale);
    }
    return out;
}

template <typename T> void gainPerSecond(benchmark::State& state, double fullScale)
{
    const std::vector<T> source = voice<T>(fullScale);
    std::vector<T> work = source;
    MicGainControl::State gain { 3.0 };
    for (auto _ : state) {
        for (int b = 0; b < buffersPerSecond; ++b)
            MicGainControl::apply(work.data() + b * bufferFrames, bufferFrames, gain);
        benchmark::DoNotOptimize(work.data());
        benchmark::ClobberMemory();
        state.PauseTiming();
        work = source;
        state.ResumeTiming();
    }
    state.counters["gain"] = gain.gain;
}

void BM_GainFloat32OneSecond48k(benchmark::State& state)
{
    gainPerSecond<float>(state, 1.0);
}

void BM_GainInt16OneSecond48k(benchmark::State& state)
{
    gainPerSecond<int16_t>(state, 32767.0);
}

void BM_MixOneSecondSystemAndMicrophone(benchmark::State& state)
{
    std::vector<AudioBuffer> system, mic;
    for (int b = 0; b < buffersPerSecond; ++b) {
        AudioBuffer s;
        s.format = AudioBuffer::SampleFormat::Int16;
        s.sampleRate = rate;
        s.channels = 2;
        s.data = QByteArray(bufferFrames * 4, '\x10');
        AudioBuffer m;
        m.format = AudioBuffer::SampleFormat::Float32;
        m.sampleRate = rate;
        m.channels = 1;
        m.data = QByteArray(bufferFrames * 4, '\x00');
        system.push_back(s);
        mic.push_back(m);
    }
    int64_t second = 0;
    int64_t samplesOut = 0;
    AudioMixer mixer([&](const AudioBuffer& b) { samplesOut += b.frameCount(); });
    for (auto _ : state) {
        for (int b = 0; b < buffersPerSecond; ++b) {
            const MediaTime at
                = MediaTime::fromNanoseconds((second * rate + b * bufferFrames) * 1'000'000'000LL / rate);
            system[size_t(b)].pts = at;
            mic[size_t(b)].pts = at;
            mixer.push(AudioMixer::Input::system, system[size_t(b)]);
            mixer.push(AudioMixer::Input::microphone, mic[size_t(b)]);
        }
        ++second;
    }
    state.counters["samples_out_per_second"] = double(samplesOut) / double(second);
}

} // namespace

BENCHMARK(BM_GainFloat32OneSecond48k)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GainInt16OneSecond48k)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MixOneSecondSystemAndMicrophone)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
