// The old-style text: the description of values (every space significant) and the reader of
// that text, which must read any description back.
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <gtest/gtest.h>

TEST(Description, NestedCollectionsStartWithTheirOwnIndentation)
{
    const QVariantMap updates{{"updates", QVariantList{
        QVariantMap{{"version", QStringLiteral("1.2.3")}, {"name", QStringLiteral("Foo")}, {"size", qlonglong(1024)}},
        QVariantMap{{"name", QStringLiteral("Bar")}, {"version", QStringLiteral("2.0")}, {"size", qlonglong(-5)}, {"critical", true}},
    }}};
    EXPECT_EQ(plist::description(updates).toStdString(), "{\n    updates =     (\n                {\n            name = Foo;\n            size = 1024;\n"
                                                         "            version = \"1.2.3\";\n        },\n                {\n            critical = 1;\n"
                                                         "            name = Bar;\n            size = \"-5\";\n            version = \"2.0\";\n        }\n    );\n}");
    EXPECT_EQ(plist::description(QVariantMap{{"updates", QVariantList()}}).toStdString(), "{\n    updates =     (\n    );\n}");
    EXPECT_EQ(plist::description(QVariantMap()).toStdString(), "{\n}");
}

TEST(Description, LeavesAndKeys)
{
    const struct { QVariant value; const char* printed; } rows[] = {
        {QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2"), "\"Caf\\U00e9 \\\"Deluxe\\\"\\nv2\""}, {QStringLiteral("\u54c8"), "\"\\U54c8\""},
        {QStringLiteral("\U0001F600"), "\"\\Ud83d\\Ude00\""}, {QStringLiteral("a\\b\tc\rd"), "\"a\\\\b\\tc\\rd\""},
        {QStringLiteral("bell\x07" "del\x7f"), "\"bell\\U0007del\\U007f\""}, {QStringLiteral("user_id"), "\"user_id\""},
        {QStringLiteral("13C64"), "13C64"}, {QString(), "\"\""}, {qlonglong(-5), "\"-5\""},
        {qulonglong(18446744073709551615ull), "18446744073709551615"}, {3.5, "\"3.5\""}, {2.0, "2"}, {true, "1"},
        {QDateTime(QDate(2024, 1, 1), QTime(0, 0, 0, 900), Qt::UTC), "\"2024-01-01 00:00:00 +0000\""},
        {QByteArray("Hello"), "<48656c6c 6f>"}, {QVariant::fromValue(nullptr), "\"<null>\""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(plist::description(QVariantList{row.value}).toStdString(), std::string("(\n    ") + row.printed + "\n)") << row.printed;
    // Keys follow the same rule and sort by UTF-16 code unit, digit runs not numerically.
    EXPECT_EQ(plist::description(QVariantMap{{"beta9", 1}, {"beta10", 1}, {"alpha", 1}, {"_x", 1}, {"Zeta", 1}, {"Build", 1}}).toStdString(),
              "{\n    Build = 1;\n    Zeta = 1;\n    \"_x\" = 1;\n    alpha = 1;\n    beta10 = 1;\n    beta9 = 1;\n}");
    // Alone, a leaf prints its bare text.
    EXPECT_EQ(plist::description(QStringLiteral("a b")), QStringLiteral("a b"));
    EXPECT_EQ(plist::description(QByteArray("\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9)), QStringLiteral("<01020304 05060708 09>"));
}

TEST(OpenStep, ReadsTheTextFormsEveryEscapeOfADescriptionAndRefusesMalformedText)
{
    QString error;
    EXPECT_EQ(plist::readOpenStep("// a comment\n{ bare = value.with-dots/and:colons; \"quoted key\" = \"a \\\"b\\\"\\n\\U00e9\\101\";\n"
                                  "  /* block\n comment */ list = (one, \"two\", <0fA0 01>,); nested = { x = y; }; }\n", &error),
              QVariant(QVariantMap{{"bare", QStringLiteral("value.with-dots/and:colons")}, {"quoted key", QStringLiteral("a \"b\"\n\u00e9A")},
                                   {"list", QVariantList{QStringLiteral("one"), QStringLiteral("two"), QByteArray("\x0f\xa0\x01", 3)}},
                                   {"nested", QVariantMap{{"x", QStringLiteral("y")}}}}))
        << qPrintable(error);
    const QVariantMap value{{"list", QVariantList{QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2"), QStringLiteral("\U0001F600\ttab\\"),
                                                  QStringLiteral("\x01\x7f"), QByteArray("Hello"), QVariantList()}},
                            {"user_id", QString()}};
    EXPECT_EQ(plist::readOpenStep(plist::description(value).toUtf8(), &error), QVariant(value)) << qPrintable(error);

    for (const char* text : {"{ a = b }", "{ a b; }", "( a b )", "\"open", "<0g>", "<abc>", "/* open", "{ (a) = b; }", "a b", "", "{ a = b; } x", "\"\\"}) {
        QString why;
        EXPECT_FALSE(plist::readOpenStep(text, &why)) << text;
        EXPECT_FALSE(why.isEmpty()) << text;
    }
    EXPECT_FALSE(plist::readOpenStep(QByteArray("(").repeated(10000) + QByteArray(")").repeated(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}
