#include "core/Publisher.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include "support/EventLoop.h"

#include <gtest/gtest.h>

namespace {

class Model : public QObject {
    Q_OBJECT
    Q_PROPERTY(int size READ size WRITE setSize NOTIFY sizeChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
public:
    int size() const { return sizeValue; }
    void setSize(int v)
    {
        sizeValue = v;
        emit sizeChanged();
    }
    QString name() const { return nameValue; }
    void setName(const QString& v)
    {
        nameValue = v;
        emit nameChanged();
    }
signals:
    void sizeChanged();
    void nameChanged();

private:
    int sizeValue = 1;
    QString nameValue = QStringLiteral("a");
};

} // namespace

TEST(Publisher, CurrentValueAtOnceUnlessDroppedThenEveryChange)
{
    Model model;
    QObject context;
    std::vector<int> all, dropped;
    auto sizes = observe(&model, &Model::size, &Model::sizeChanged);
    sizes.sink(&context, [&](int v) { all.push_back(v); });
    sizes.dropFirst().sink(&context, [&](int v) { dropped.push_back(v); });
    model.setSize(2);
    model.setSize(2);
    EXPECT_EQ(all, (std::vector<int> { 1, 2, 2 }));
    EXPECT_EQ(dropped, (std::vector<int> { 2, 2 }));
}

TEST(Publisher, RemoveDuplicatesPassesOnlyChanges)
{
    Model model;
    QObject context;
    std::vector<int> seen;
    observe(&model, &Model::size, &Model::sizeChanged).removeDuplicates().dropFirst().sink(&context, [&](int v) {
        seen.push_back(v);
    });
    for (int v : { 1, 3, 3, 1, 1, 4 })
        model.setSize(v);
    EXPECT_EQ(seen, (std::vector<int> { 3, 1, 4 }));
}

TEST(Publisher, SubscriptionEndsWithItsContext)
{
    Model model;
    int deliveries = 0;
    {
        QObject context;
        observe(&model, &Model::size, &Model::sizeChanged).sink(&context, [&](int) { ++deliveries; });
    }
    model.setSize(5);
    EXPECT_EQ(deliveries, 1); // only the current value, before the context went away
}

TEST(Publisher, CombineLatestDeliversOnceAtOnceThenOnAnyChange)
{
    Model model;
    QObject context;
    std::vector<std::tuple<int, QString>> seen;
    combineLatest(
        observe(&model, &Model::size, &Model::sizeChanged), observe(&model, &Model::name, &Model::nameChanged))
        .sink(&context, [&](const std::tuple<int, QString>& v) { seen.push_back(v); });
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], std::make_tuple(1, QStringLiteral("a")));
    model.setName(QStringLiteral("b"));
    model.setSize(9);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2], std::make_tuple(9, QStringLiteral("b")));
}

TEST(Publisher, DebounceFoldsChangesCloserThanTheInterval)
{
    Model model;
    QObject context;
    std::vector<int> seen;
    observe(&model, &Model::size, &Model::sizeChanged)
        .dropFirst()
        .debounce(std::chrono::milliseconds(400))
        .sink(&context, [&](int v) { seen.push_back(v); });

    model.setSize(2);
    spinFor(100);
    model.setSize(3);
    spinFor(300); // 400 ms after the first change, but only 300 after the second
    EXPECT_TRUE(seen.empty());
    spinFor(250);
    EXPECT_EQ(seen, (std::vector<int> { 3 }));

    // A change after a quiet period is delivered again.
    model.setSize(4);
    spinFor(550);
    EXPECT_EQ(seen, (std::vector<int> { 3, 4 }));
}

#include "PublisherTest.moc"
