#include "tools/HostScript.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace hostscript {
namespace {

// One notion of white space for the whole line: the blank-line test, the
// command word and the tokenizer must agree, or a line of form feeds is
// neither blank nor a command with a name.
bool IsSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

int HexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    return std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
}

bool ParseQuoted(const std::string& line, size_t& at, std::string& out, std::string& error)
{
    ++at;  // opening quote
    while (at < line.size()) {
        char c = line[at++];
        if (c == '"') return true;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (at >= line.size()) break;
        char e = line[at++];
        switch (e) {
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case '0': out += '\0'; break;
        case '\\': out += '\\'; break;
        case '"': out += '"'; break;
        case 'x': {
            size_t used = 0;
            int value = 0;
            while (used < 2 && at < line.size() && std::isxdigit(static_cast<unsigned char>(line[at]))) {
                value = value * 16 + HexValue(line[at]);
                ++at;
                ++used;
            }
            if (used == 0) {
                error = "bad \\x escape";
                return false;
            }
            out += static_cast<char>(value);
            break;
        }
        default:
            error = std::string("unknown escape \\") + e;
            return false;
        }
    }
    error = "unterminated string";
    return false;
}

}  // namespace

bool Tokenize(const std::string& line, long long hostWindow, std::vector<Token>& tokens, std::string& error)
{
    size_t at = 0;
    while (true) {
        while (at < line.size() && IsSpace(line[at])) ++at;
        if (at >= line.size()) return true;
        Token token{};
        if (line[at] == '"') {
            std::string text;
            if (!ParseQuoted(line, at, text, error)) return false;
            token.kind = Token::String;
            token.string = text;
            tokens.push_back(token);
            continue;
        }
        size_t start = at;
        while (at < line.size() && !IsSpace(line[at])) ++at;
        token.text = line.substr(start, at - start);
        const char* begin = token.text.c_str();
        char* end = nullptr;
        errno = 0;
        long long integer = std::strtoll(begin, &end, 10);
        if (end != begin && *end == '\0' && errno == 0) {
            token.kind = Token::Integer;
            token.integer = integer;
        } else {
            double decimal = std::strtod(begin, &end);
            if (end != begin && *end == '\0' && (std::isdigit(static_cast<unsigned char>(token.text.back())) ||
                                                 token.text.back() == '.')) {
                token.kind = Token::Decimal;
                token.decimal = decimal;
            } else if (token.text == "true" || token.text == "false") {
                token.kind = Token::Boolean;
                token.integer = token.text == "true" ? 1 : 0;
            } else if (token.text == "null") {
                token.kind = Token::Null;
            } else if (token.text == "@hostwnd") {
                token.kind = Token::Integer;
                token.integer = hostWindow;
            } else {
                token.kind = Token::Word;
            }
        }
        tokens.push_back(token);
    }
}

Line ParseLine(const std::string& line, long long hostWindow)
{
    Line parsed;
    size_t first = 0;
    while (first < line.size() && IsSpace(line[first])) ++first;
    if (first == line.size() || line[first] == ';') return parsed;
    const std::string command = line.substr(first);
    size_t wordEnd = 0;
    while (wordEnd < command.size() && !IsSpace(command[wordEnd])) ++wordEnd;
    parsed.word = command.substr(0, wordEnd);
    if (parsed.word == "echo") {
        size_t textStart = wordEnd;
        while (textStart < command.size() && IsSpace(command[textStart])) ++textStart;
        parsed.kind = Line::Echo;
        parsed.text = command.substr(textStart);
        return parsed;
    }
    std::string error;
    if (!Tokenize(command, hostWindow, parsed.tokens, error)) {
        parsed.kind = Line::Error;
        parsed.tokens.clear();
        parsed.text = error + ": " + command;
        return parsed;
    }
    // The line starts with something other than white space, so there is a
    // first token; an empty list would be a line nobody can run.
    parsed.kind = parsed.tokens.empty() ? Line::Blank : Line::Command;
    return parsed;
}

bool ToVariant(const Token& token, VarType declared, Variant& out, std::string& error)
{
    switch (token.kind) {
    case Token::Integer:
        if (declared == VarType::I2) {
            // Shorts take their 16-bit pattern: 65535 is -1, as a host's
            // unsigned value would arrive.
            if (token.integer < -32768 || token.integer > 65535) {
                error = "value " + token.text + " does not fit a short";
                return false;
            }
            out = Variant::I2(static_cast<int16_t>(static_cast<uint16_t>(token.integer)));
        } else if (declared == VarType::Bool) {
            out = Variant::Bool(token.integer != 0);
        } else if (declared == VarType::R4) {
            out = Variant::R4(static_cast<float>(token.integer));
        } else {
            if (token.integer < INT32_MIN || token.integer > UINT32_MAX) {
                error = "value " + token.text + " does not fit a long";
                return false;
            }
            out = Variant::I4(static_cast<int32_t>(static_cast<uint32_t>(token.integer)));
        }
        return true;
    case Token::Decimal:
        out = Variant::R4(static_cast<float>(token.decimal));
        return true;
    case Token::Boolean:
        out = Variant::Bool(static_cast<int32_t>(token.integer));
        return true;
    case Token::String:
        out = Variant::Str(token.string);
        return true;
    case Token::Null:
        out = Variant::Str(std::nullopt);
        return true;
    case Token::Word:
        error = "cannot read argument '" + token.text + "'";
        return false;
    }
    return false;
}

bool ReadMemberCall(const std::vector<Token>& tokens, MemberCall& call, std::string& error)
{
    if (tokens.empty()) {
        error = "no member named";
        return false;
    }
    const std::string& name = tokens[0].text;
    const MemberInfo* member = nullptr;
    if (!name.empty() && name[0] == '#') {
        char* end = nullptr;
        long id = std::strtol(name.c_str() + 1, &end, 10);
        member = (end != name.c_str() + 1 && *end == '\0') ? FindMember(static_cast<DISPID>(id)) : nullptr;
        if (member == nullptr) {
            error = "unknown member " + name;
            return false;
        }
    } else {
        member = FindMemberByName(name.c_str());
        if (member == nullptr) {
            error = "unknown member or command '" + name + "'";
            return false;
        }
    }

    call = MemberCall{};
    call.member = member;
    size_t firstArgument = 1;
    if (member->isProperty) {
        call.kind = InvokeKind::PropertyGet;
        if (tokens.size() >= 2 && tokens[1].kind == Token::Word && tokens[1].text == "=") {
            call.kind = InvokeKind::PropertyPut;
            firstArgument = 2;
        }
    }
    const std::vector<ParamInfo> declared = call.kind == InvokeKind::PropertyPut
                                                ? std::vector<ParamInfo>{{"value", member->result}}
                                                : member->params;
    for (size_t i = firstArgument; i < tokens.size(); ++i) {
        size_t index = i - firstArgument;
        VarType type = index < declared.size() ? declared[index].type : VarType::I4;
        Variant value;
        std::string why;
        if (!ToVariant(tokens[i], type, value, why)) {
            error = std::string(member->name) + ": " + why;
            return false;
        }
        call.args.push_back(value);
    }
    return true;
}

}  // namespace hostscript
