#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <gtest/gtest.h>

namespace {

QVariantMap entry(std::initializer_list<std::pair<QString, QVariant>> pairs)
{
    QVariantMap map;
    for (const auto& [key, value] : pairs)
        map.insert(key, value);
    return map;
}

} // namespace

TEST(Description, WorkedExampleA)
{
    const QVariantMap updates{{"updates", QVariantList{
        entry({{"version", QStringLiteral("1.2.3")}, {"name", QStringLiteral("Foo")}, {"size", qlonglong(1024)}}),
        entry({{"name", QStringLiteral("Bar")}, {"version", QStringLiteral("2.0")}, {"size", qlonglong(-5)}, {"critical", true}}),
    }}};
    EXPECT_EQ(plist::description(updates).toStdString(),
              "{\n"
              "    updates =     (\n"
              "                {\n"
              "            name = Foo;\n"
              "            size = 1024;\n"
              "            version = \"1.2.3\";\n"
              "        },\n"
              "                {\n"
              "            critical = 1;\n"
              "            name = Bar;\n"
              "            size = \"-5\";\n"
              "            version = \"2.0\";\n"
              "        }\n"
              "    );\n"
              "}");
}

TEST(Description, WorkedExampleBAndEmptyShapes)
{
    EXPECT_EQ(plist::description(QVariantMap{{"updates", QVariantList()}}).toStdString(), "{\n    updates =     (\n    );\n}");
    EXPECT_EQ(plist::description(QVariantList{QVariantMap{{"name", QStringLiteral("Foo")}}, QVariantMap{{"name", QStringLiteral("Bar")}}})
                  .toStdString(),
              "(\n        {\n        name = Foo;\n    },\n        {\n        name = Bar;\n    }\n)");
    EXPECT_EQ(plist::description(QVariantMap()).toStdString(), "{\n}");
    EXPECT_EQ(plist::description(QVariantList()).toStdString(), "(\n)");
    // The nested-dictionary shape the platform's own tests pin.
    const QVariantMap nested{{"1", QVariantMap{{"1", QVariantMap{{"1", qlonglong(1)}}}}}};
    EXPECT_EQ(plist::description(nested).toStdString(),
              "{\n    1 =     {\n        1 =         {\n            1 = 1;\n        };\n    };\n}");
}

TEST(Description, LeavesInsideCollections)
{
    struct Case { QVariant value; const char* printed; };
    const Case cases[] = {
        {QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2"), "\"Caf\\U00e9 \\\"Deluxe\\\"\\nv2\""},
        {QStringLiteral("\u6211"), "\"\\U6211\""},
        {QStringLiteral("\u54c8"), "\"\\U54c8\""},
        {QStringLiteral("\U0001F600"), "\"\\Ud83d\\Ude00\""},
        {QStringLiteral("a\\b\tc\rd"), "\"a\\\\b\\tc\\rd\""},
        {QStringLiteral("bell\x07" "del\x7f"), "\"bell\\U0007del\\U007f\""},
        {QStringLiteral("it's"), "\"it's\""},
        {QStringLiteral("com.example.App"), "\"com.example.App\""},
        {QStringLiteral("user_id"), "\"user_id\""},
        {QStringLiteral("13C64"), "13C64"},
        {QString(), "\"\""},
        {qlonglong(1024), "1024"},
        {qlonglong(-5), "\"-5\""},
        {qulonglong(18446744073709551615ull), "18446744073709551615"},
        {3.5, "\"3.5\""},
        {2.0, "2"},
        {0.1, "\"0.1\""},
        {1e20, "\"1e+20\""},
        {true, "1"},
        {false, "0"},
        {QDateTime(QDate(2024, 1, 1), QTime(0, 0, 0, 900), Qt::UTC), "\"2024-01-01 00:00:00 +0000\""},
        {QByteArray("Hello"), "<48656c6c 6f>"},
        {QByteArray(), "<>"},
        {QVariant::fromValue(nullptr), "\"<null>\""},
    };
    for (const Case& c : cases) {
        const QString text = plist::description(QVariantList{c.value});
        EXPECT_EQ(text.toStdString(), std::string("(\n    ") + c.printed + "\n)") << c.printed;
    }
    // Keys follow the same rule and sort by UTF-16 code unit, digits not numerically.
    const QVariantMap keys{{"beta9", 1}, {"beta10", 1}, {"alpha", 1}, {"_x", 1}, {"Zeta", 1}, {"Build", 1}, {"user_id", 1}};
    EXPECT_EQ(plist::description(keys).toStdString(),
              "{\n    Build = 1;\n    Zeta = 1;\n    \"_x\" = 1;\n    alpha = 1;\n    beta10 = 1;\n    beta9 = 1;\n    \"user_id\" = 1;\n}");
}

TEST(Description, LeavesAloneAreNotQuoted)
{
    EXPECT_EQ(plist::description(QStringLiteral("a b")), QStringLiteral("a b"));
    EXPECT_EQ(plist::description(qlonglong(-5)), QStringLiteral("-5"));
    EXPECT_EQ(plist::description(QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC)), QStringLiteral("2001-01-01 00:00:00 +0000"));
    EXPECT_EQ(plist::description(QByteArray("\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9)), QStringLiteral("<01020304 05060708 09>"));
}
