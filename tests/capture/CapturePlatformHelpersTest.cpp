#include "platform/x11/ApplicationNames.h"
#include "platform/x11/X11Cursor.h"

#include <gtest/gtest.h>

TEST(X11Cursor, BlendIsPremultipliedSourceOverAndOpaque)
{
    EXPECT_EQ(X11Cursor::blend(0x00123456u, 0xff000000u), 0xff000000u); // opaque black covers
    EXPECT_EQ(X11Cursor::blend(0x00ffffffu, 0x00000000u), 0xffffffffu); // transparent keeps, alpha opaque
    // Half-transparent white (premultiplied 0x80) over black and over white.
    EXPECT_EQ(X11Cursor::blend(0x00000000u, 0x80808080u), 0xff808080u);
    EXPECT_EQ(X11Cursor::blend(0x00ffffffu, 0x80808080u), 0xffffffffu);
    // Half-transparent black over mid grey darkens by the alpha.
    EXPECT_EQ(X11Cursor::blend(0x00c8c8c8u, 0x80000000u), 0xff646464u);
}

TEST(ApplicationNames, ClassesMadePresentable)
{
    EXPECT_EQ(ApplicationNames::prettified(QStringLiteral("xterm")), QStringLiteral("Xterm"));
    EXPECT_EQ(ApplicationNames::prettified(QStringLiteral("org.gnome.Nautilus")), QStringLiteral("Nautilus"));
    EXPECT_EQ(ApplicationNames::prettified(QStringLiteral("firefox-esr")), QStringLiteral("Firefox-esr"));
    EXPECT_EQ(ApplicationNames::prettified(QStringLiteral("Zoom.real")), QStringLiteral("Zoom.real"));
    EXPECT_EQ(ApplicationNames::prettified(QString()), QString());
}
