#include "app/UpdateChecker.h"

#include <gtest/gtest.h>

// The appcast as Sparkle-style feeds write it: what counts as newer, and what a broken feed gives.
TEST(UpdateChecker, PicksTheNewestReleaseAboveOursAndNothingFromABrokenFeed)
{
    const QByteArray feed = R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
 <channel>
  <item><title>0.9</title><link>https://example.org/0.9</link>
   <enclosure url="https://example.org/v0.9.tar.gz" sparkle:version="90" sparkle:shortVersionString="0.9"/></item>
  <item><title>1.2</title><link>https://example.org/1.2</link>
   <enclosure url="https://example.org/v1.2.tar.gz" sparkle:version="120" sparkle:shortVersionString="1.2"/></item>
  <item><title>1.10</title>
   <enclosure url="https://example.org/v1.10.tar.gz" sparkle:shortVersionString="1.10"/></item>
 </channel>
</rss>)";
    // 1.10 is newer than 1.2 (numbers, not text), and without a link of its own the download is the link.
    const auto newest = UpdateChecker::newerRelease(feed, QStringLiteral("1.0"));
    ASSERT_TRUE(newest.has_value());
    EXPECT_EQ(newest->version, QStringLiteral("1.10"));
    EXPECT_EQ(newest->link, QUrl(QStringLiteral("https://example.org/v1.10.tar.gz")));

    EXPECT_FALSE(UpdateChecker::newerRelease(feed, QStringLiteral("1.10")).has_value());
    EXPECT_FALSE(UpdateChecker::newerRelease(feed.left(feed.size() / 2), QStringLiteral("0.1")).has_value());
    EXPECT_FALSE(UpdateChecker::newerRelease("not xml at all", QStringLiteral("0.1")).has_value());

    // Without a configured feed the checker never starts a request.
    UpdateChecker idle({}, QStringLiteral("0.1"));
    idle.start();
    EXPECT_FALSE(idle.isActive());
}
