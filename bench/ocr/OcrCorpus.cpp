// How exactly the P&L figure is read off clips as the recorder writes them: every sign form,
// currency mark and thousands separator a trading panel shows, in three sans and mono fonts, from
// 12 to 40 pixels, in red, green and plain text on a dark and on a light theme. Each figure is read
// by ClipAutoDetect::detect through its own watched area, exactly as after a save.
//
// The one result that must be zero is a wrong sign: a loss booked as a win. A figure that the
// detector reports as disputed (tag by hand) or doesn't find is a miss, not a fault.
#include "journal/ClipAutoDetect.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "support/FigureGrid.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <map>
#include <thread>
#include <vector>

namespace {

struct Font {
    const char* name;
    const char* path;
    // Noto Sans has no true minus (U+2212): a desktop draws it from a fallback font, drawtext a box.
    bool trueMinus = true;
};
const Font fonts[] = {
    { "DejaVu Sans", "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf" },
    { "DejaVu Sans Mono", "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf" },
    { "Liberation Sans", "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf" },
    { "Liberation Mono", "/usr/share/fonts/truetype/liberation/LiberationMono-Regular.ttf" },
    { "Noto Sans", "/usr/share/fonts/truetype/noto/NotoSans-Regular.ttf", false },
};

bool drawable(const FigureGrid::Figure& figure, const Font& font)
{
    return font.trueMinus || !QString::fromUtf8(figure.text).contains(QChar(0x2212));
}

struct Theme {
    const char* name;
    const char* background;
    const char* ink;
};
// Trading platforms' own shades of red and green on their dark and light grounds.
const Theme themes[] = {
    { "dark/red", "0x15181c", "0xff5a52" },
    { "dark/green", "0x15181c", "0x3ccf6e" },
    { "dark/plain", "0x15181c", "0xe8eaed" },
    { "light/red", "0xf6f7f9", "0xc62828" },
    { "light/green", "0xf6f7f9", "0x1e8e3e" },
    { "light/plain", "0xf6f7f9", "0x202124" },
};

enum class Verdict { exact, wrongAmount, wrongSign, disputed, none };

struct Tally {
    int counts[5] {};
    void add(Verdict v) { ++counts[int(v)]; }
    int total() const { return counts[0] + counts[1] + counts[2] + counts[3] + counts[4]; }
};

Verdict judge(const ClipAutoDetect::Detection& d, double expected)
{
    if (d.disputed) return Verdict::disputed;
    if (!d.result) return Verdict::none;
    const TradeOutcome want
        = expected < 0 ? TradeOutcome::loss : (expected > 0 ? TradeOutcome::win : TradeOutcome::breakeven);
    // A break-even read as a small win or loss is a wrong amount; a win read as a loss is the fault.
    if (d.result->outcome != want && d.result->outcome != TradeOutcome::breakeven && want != TradeOutcome::breakeven)
        return Verdict::wrongSign;
    if (d.result->outcome == want && std::abs(d.result->pnl - std::abs(expected)) < 1e-9) return Verdict::exact;
    return Verdict::wrongAmount;
}

void printTable(const char* heading, const std::map<QString, Tally>& rows)
{
    std::printf(
        "\n| %s | figures | exact | wrong amount | wrong sign | disputed | none |\n|---|---|---|---|---|---|---|\n",
        heading);
    for (const auto& [name, t] : rows)
        std::printf("| %s | %d | %d (%.1f%%) | %d | %d | %d | %d |\n", qPrintable(name), t.total(), t.counts[0],
            100.0 * t.counts[0] / std::max(1, t.total()), t.counts[1], t.counts[2], t.counts[3], t.counts[4]);
}

} // namespace

int main(int argc, char** argv)
{
    // Every nth figure only, for a quick look while working on the detector.
    const int stride = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1;
    const bool verbose = qEnvironmentVariableIsSet("VELOTAPE_OCR_CORPUS_VERBOSE");
    const QDir dir(QDir::temp().filePath(QStringLiteral("velotape-ocr-corpus")));
    QDir().mkpath(dir.path());

    struct Job {
        QString clip;
        int font, theme, row, column;
    };
    std::vector<Job> jobs;
    QElapsedTimer made;
    made.start();
    for (int f = 0; f < int(std::size(fonts)); ++f) {
        for (int t = 0; t < int(std::size(themes)); ++t) {
            // Kept between runs: the corpus only changes with this file.
            const QString clip = dir.filePath(QStringLiteral("corpus-%1-%2.mp4").arg(f).arg(t));
            if (!QFile::exists(clip)) {
                const QString partial = clip + QStringLiteral(".part.mp4");
                if (!FigureGrid::make(partial, QString::fromUtf8(fonts[f].path),
                        QString::fromUtf8(themes[t].background), QString::fromUtf8(themes[t].ink))
                    || !QFile::rename(partial, clip))
                    return 1;
            }
            for (int row = 0; row < int(FigureGrid::figures.size()); ++row)
                for (int column = 0; column < int(FigureGrid::sizes.size()); ++column)
                    if (drawable(FigureGrid::figures[size_t(row)], fonts[f]))
                        jobs.push_back({ clip, f, t, row, column });
        }
    }
    std::fprintf(stderr, "corpus ready in %.1f s\n", made.elapsed() / 1000.0);

    std::vector<Verdict> verdicts(jobs.size(), Verdict::none);
    std::vector<bool> done(jobs.size(), false);
    std::atomic<size_t> next { 0 };
    QMutex printing;
    QElapsedTimer timer;
    timer.start();
    {
        std::vector<std::jthread> workers;
        for (int w = 0; w < std::max(1, QThread::idealThreadCount()); ++w) {
            workers.emplace_back([&] {
                const auto recognizer = TesseractRecognizer::create();
                if (!recognizer) {
                    std::fprintf(stderr, "Tesseract doesn't start (tesseract-ocr-eng?)\n");
                    std::exit(1);
                }
                for (size_t i = next.fetch_add(size_t(stride)); i < jobs.size(); i = next.fetch_add(size_t(stride))) {
                    const Job& j = jobs[i];
                    const QRectF area = FigureGrid::areaOf(j.row, j.column);
                    const auto d = ClipAutoDetect::detect(
                        j.clip, area, QSizeF(FigureGrid::clipSize), QSizeF(FigureGrid::clipSize), *recognizer);
                    verdicts[i] = judge(d, FigureGrid::figures[size_t(j.row)].value);
                    done[i] = true;
                    if (verbose || verdicts[i] == Verdict::wrongSign) {
                        const QMutexLocker lock(&printing);
                        std::fprintf(stderr, "%-10s %2dpx %-16s %-11s -> %s%s\n",
                            FigureGrid::figures[size_t(j.row)].text, FigureGrid::sizes[size_t(j.column)],
                            fonts[j.font].name, themes[j.theme].name,
                            d.disputed     ? qPrintable(QStringLiteral("disputed '%1'").arg(*d.disputed))
                                : d.result ? qPrintable(QStringLiteral("%1 '%2'").arg(
                                      ClipAutoDetect::summary(*d.result), d.result->rawText))
                                           : "none",
                            verdicts[i] == Verdict::wrongSign         ? "   WRONG SIGN"
                                : verdicts[i] == Verdict::wrongAmount ? "   wrong amount"
                                                                      : "");
                    }
                }
            });
        }
    }

    Tally all;
    std::map<QString, Tally> bySize, byFont, byTheme, byFigure;
    for (size_t i = 0; i < jobs.size(); ++i) {
        if (!done[i]) continue;
        const Job& j = jobs[i];
        all.add(verdicts[i]);
        bySize[QStringLiteral("%1 px").arg(FigureGrid::sizes[size_t(j.column)], 2)].add(verdicts[i]);
        byFont[QString::fromUtf8(fonts[j.font].name)].add(verdicts[i]);
        byTheme[QString::fromUtf8(themes[j.theme].name)].add(verdicts[i]);
        byFigure[QString::fromUtf8(FigureGrid::figures[size_t(j.row)].text)].add(verdicts[i]);
    }
    std::printf("%d figures in %.1f s: %d exact (%.1f%%), %d wrong amount, %d WRONG SIGN, %d disputed, %d none\n",
        all.total(), timer.elapsed() / 1000.0, all.counts[0], 100.0 * all.counts[0] / std::max(1, all.total()),
        all.counts[1], all.counts[2], all.counts[3], all.counts[4]);
    printTable("Size", bySize);
    printTable("Font", byFont);
    printTable("Theme", byTheme);
    printTable("Figure", byFigure);
    return all.counts[int(Verdict::wrongSign)] == 0 ? 0 : 2;
}
