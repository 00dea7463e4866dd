#pragma once
// The command language of `tempvox host`, apart from running it: one line
// becomes a command word and its tokens, and a token becomes the argument a
// member declares. Kept apart so that it can be driven without a control.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "shell/DispatchTable.h"
#include "shell/Variant.h"

namespace hostscript {

struct Token {
    enum Kind { Integer, Decimal, Boolean, String, Null, Word } kind = Word;
    std::string text;
    long long integer = 0;
    double decimal = 0.0;
    std::optional<std::string> string;
};

struct Line {
    enum Kind {
        Blank,    // nothing to run: white space only, or a comment
        Echo,     // `echo text`: `text` holds what follows the word
        Command,  // a command or a member: `word` and at least one token
        Error,    // could not be read: `text` says why
    } kind = Blank;
    std::string word;
    std::vector<Token> tokens;
    std::string text;
};

// Reads one line of input (without its line end). `hostWindow` is what
// `@hostwnd` stands for.
Line ParseLine(const std::string& line, long long hostWindow);

// Splits a line into tokens; false with `error` set for a bad string literal.
bool Tokenize(const std::string& line, long long hostWindow, std::vector<Token>& tokens, std::string& error);

// A literal becomes the declared type where it fits; otherwise it keeps its
// own type and the dispatch layer answers the mismatch. False with `error`
// set for a value that fits no argument.
bool ToVariant(const Token& token, VarType declared, Variant& out, std::string& error);

// A member line's target and arguments, ready for Invoke.
struct MemberCall {
    const MemberInfo* member = nullptr;
    InvokeKind kind = InvokeKind::Method;
    std::vector<Variant> args;
};

// Looks up the member a command line names (by name or `#id`) and converts
// its arguments. False with `error` set otherwise.
bool ReadMemberCall(const std::vector<Token>& tokens, MemberCall& call, std::string& error);

}  // namespace hostscript
