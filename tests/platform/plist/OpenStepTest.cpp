#include "platform/plist/PropertyList.h"

#include <gtest/gtest.h>

TEST(OpenStep, ReadsTheTextForms)
{
    const QByteArray text = "// a comment\n{\n  bare = value.with-dots/and:colons;\n  \"quoted key\" = \"a \\\"b\\\"\\n\\U00e9\\101\";\n"
                            "  /* block\n comment */ list = (one, \"two\", <0fA0 01>,);\n  empty = ();\n  nested = { x = y; };\n}\n";
    QString error;
    const auto value = plist::readOpenStep(text, &error);
    ASSERT_TRUE(value) << qPrintable(error);
    const QVariantMap expected{
        {"bare", QStringLiteral("value.with-dots/and:colons")},
        {"quoted key", QStringLiteral("a \"b\"\n\u00e9A")},
        {"list", QVariantList{QStringLiteral("one"), QStringLiteral("two"), QByteArray("\x0f\xa0\x01", 3)}},
        {"empty", QVariantList()},
        {"nested", QVariantMap{{"x", QStringLiteral("y")}}},
    };
    EXPECT_EQ(*value, QVariant(expected));
}

TEST(OpenStep, DescriptionReadsBack)
{
    const QVariantMap value{
        {"updates", QVariantList{QVariantMap{{"name", QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2")},
                                             {"path", QStringLiteral("/Applications/A b.app")},
                                             {"emoji", QStringLiteral("\U0001F600\ttab\\")},
                                             {"control", QStringLiteral("\x01\x7f")},
                                             {"blob", QByteArray("Hello")}}}},
        {"user_id", QStringLiteral("")},
    };
    QString error;
    const auto back = plist::readOpenStep(plist::description(value).toUtf8(), &error);
    ASSERT_TRUE(back) << qPrintable(error);
    EXPECT_EQ(*back, QVariant(value));
}

TEST(OpenStep, MalformedTextFailsWithAReason)
{
    const char* cases[] = {
        "{ a = b }",  "{ a b; }",  "( a b )", "\"open", "<0g>", "<abc>", "/* open", "{ (a) = b; }", "a b", "", "{ a = b; } x", "\"\\",
    };
    for (const char* text : cases) {
        QString error;
        EXPECT_FALSE(plist::readOpenStep(text, &error)) << text;
        EXPECT_FALSE(error.isEmpty()) << text;
    }
    const QByteArray deep = QByteArray("(").repeated(10000) + QByteArray(")").repeated(10000);
    QString error;
    EXPECT_FALSE(plist::readOpenStep(deep, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}
