#include <gtest/gtest.h>

#include "tools/HostScript.h"

using hostscript::Line;
using hostscript::Token;

namespace {

constexpr long long kHostWindow = 65536;

std::string KindsOf(const std::vector<Token>& tokens)
{
    // One letter a token: Integer, Decimal, Boolean, String, Null, Word.
    std::string kinds;
    for (const Token& token : tokens) kinds += "IDBSNW"[token.kind];
    return kinds;
}

}  // namespace

TEST(HostScript, LinesOfAnyWhiteSpaceAreBlankAndWordsSplitOnIt)
{
    struct Case {
        const char* name;
        std::string line;
        Line::Kind kind;
        std::string word;
        std::string kinds;
    };
    const Case cases[] = {
        {"empty", "", Line::Blank, "", ""},
        {"spaces and tabs", " \t ", Line::Blank, "", ""},
        // C's white space beyond space and tab: each once took the line for
        // a command of no token and crashed the container.
        {"vertical tab", "\v", Line::Blank, "", ""},
        {"form feed", "\f", Line::Blank, "", ""},
        {"carriage return left by a CR CR LF line end", "\r", Line::Blank, "", ""},
        {"all of them", " \t\v\f\r\n", Line::Blank, "", ""},
        {"comment after form feeds", "\f\f; pump", Line::Blank, "", ""},
        {"member split by a form feed", "SetVolume\f50", Line::Command, "SetVolume", "WI"},
        {"command word ends at a vertical tab", "pump\v100", Line::Command, "pump", "WI"},
        {"literals", "X 1 -2.5 true null \"a b\" word 3.", Line::Command, "X", "WIDBNSWD"},
        {"host window", "CreateWavViewWnd 0 0 10 10 @hostwnd", Line::Command, "CreateWavViewWnd", "WIIIII"},
        {"integer beyond long long", "X 99999999999999999999", Line::Command, "X", "WD"},
        {"unterminated string", "X \"abc", Line::Error, "X", ""},
        {"bad escape", "X \"\\q\"", Line::Error, "X", ""},
        {"escape without hex digits", "X \"\\xg\"", Line::Error, "X", ""},
        {"echo keeps its text", "echo \f a  b", Line::Echo, "echo", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Line parsed = hostscript::ParseLine(c.line, kHostWindow);
        EXPECT_EQ(parsed.kind, c.kind);
        EXPECT_EQ(parsed.word, c.word);
        EXPECT_EQ(KindsOf(parsed.tokens), c.kinds);
        if (c.kind == Line::Command) {
            EXPECT_FALSE(parsed.tokens.empty());
        }
    }
    EXPECT_EQ(hostscript::ParseLine("echo \f a  b", kHostWindow).text, "a  b");
    EXPECT_EQ(hostscript::ParseLine("X @hostwnd", kHostWindow).tokens[1].integer, kHostWindow);
    EXPECT_EQ(*hostscript::ParseLine("X \"\\x41\\x4a\\t\"", kHostWindow).tokens[1].string, "AJ\t");
}

TEST(HostScript, MemberCallsTakeTheDeclaredTypes)
{
    struct Case {
        std::string line;
        bool ok;
        std::string error;
        InvokeKind kind;
        std::vector<VarType> types;
    };
    const Case cases[] = {
        {"SetVolume 50", true, "", InvokeKind::Method, {VarType::I4}},
        {"#4 50", true, "", InvokeKind::Method, {VarType::I4}},
        {"SetChangeSpeedLevel 65535", true, "", InvokeKind::Method, {VarType::I2}},
        {"SetChangeSpeedLevel 65536", false, "SetChangeSpeedLevel: value 65536 does not fit a short",
         InvokeKind::Method, {}},
        {"SetVolume 4294967296", false, "SetVolume: value 4294967296 does not fit a long", InvokeKind::Method, {}},
        {"SetLanguageType", true, "", InvokeKind::PropertyGet, {}},
        {"SetLanguageType = 2", true, "", InvokeKind::PropertyPut, {VarType::I2}},
        {"SetPlayFilePath null -1 \"a.wav\"", true, "", InvokeKind::Method, {VarType::Str, VarType::I2, VarType::Str}},
        {"SetVolume fifty", false, "SetVolume: cannot read argument 'fifty'", InvokeKind::Method, {}},
        {"#", false, "unknown member #", InvokeKind::Method, {}},
        {"#99", false, "unknown member #99", InvokeKind::Method, {}},
        {"Nothing", false, "unknown member or command 'Nothing'", InvokeKind::Method, {}},
        {"\"quoted\"", false, "unknown member or command ''", InvokeKind::Method, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        const Line parsed = hostscript::ParseLine(c.line, kHostWindow);
        ASSERT_EQ(parsed.kind, Line::Command);
        hostscript::MemberCall call;
        std::string error;
        EXPECT_EQ(hostscript::ReadMemberCall(parsed.tokens, call, error), c.ok);
        EXPECT_EQ(error, c.error);
        if (!c.ok) continue;
        EXPECT_EQ(call.kind, c.kind);
        std::vector<VarType> types;
        for (const Variant& arg : call.args) types.push_back(arg.type);
        EXPECT_EQ(types, c.types);
    }
    hostscript::MemberCall call;
    std::string error;
    EXPECT_FALSE(hostscript::ReadMemberCall({}, call, error)) << "a list of no token names no member";
}
