// Reads UDML back into the repository: each statement's head and qualified name decide what it
// declares, the rest (an AS clause or none, properties, whatever else) is skipped token by token up
// to its ";". Several texts are written raw by the generator (display names, join names, mapped
// columns, view links, URIs), so each ends only at a quote that what the generator writes next
// follows.
// Every scan moves forward only, keeping the reader linear in its input whatever that input is.
#include "platform/repository/UdmlReader.h"

#include "platform/repository/UdmlContent.h"

#include "platform/BaseStringUtil.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

WyString Wide(const std::string& text) {
    WyString out;
    BaseStringUtil::AppendFromUtf8(text.data(), text.size(), out);
    return out;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}
bool IsWordStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}
bool IsWordChar(char c) {
    return IsWordStart(c) || (c >= '0' && c <= '9');
}

// Offset of the first ill-formed UTF-8 sequence, or npos. Same well-formedness rules as the
// converter: no overlongs, no surrogates, nothing past U+10FFFF.
size_t FindIllFormedUtf8(const std::string& text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    size_t i = 0;
    while (i < n) {
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        int need;
        unsigned char lo = 0x80, hi = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            need = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            need = 2;
            lo = lead == 0xE0 ? 0xA0 : 0x80;
            hi = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            need = 3;
            lo = lead == 0xF0 ? 0x90 : 0x80;
            hi = lead == 0xF4 ? 0x8F : 0xBF;
        } else {
            return i;
        }
        for (int k = 1; k <= need; ++k) {
            if (i + k >= n || bytes[i + k] < lo || bytes[i + k] > hi)
                return i;
            lo = 0x80;
            hi = 0xBF;
        }
        i += static_cast<size_t>(need) + 1;
    }
    return std::string::npos;
}

// Prefix hashes of the text from a fixed start, extended only as far as a comparison needs, so
// that the raw join name can be matched against its repetition in constant time per candidate.
class PrefixHash {
public:
    PrefixHash(const std::string& text, size_t start) : m_text(text), m_start(start) {
        m_h1.push_back(0);
        m_h2.push_back(0);
        m_p1.push_back(1);
        m_p2.push_back(1);
    }
    /// True when the `length` bytes at `a` and at `b` (absolute offsets, both >= start) hash alike.
    bool SameHash(size_t a, size_t b, size_t length) {
        Extend((a > b ? a : b) + length - m_start);
        return Sub(m_h1, m_p1, kMod1, a - m_start, length) == Sub(m_h1, m_p1, kMod1, b - m_start, length) &&
               Sub(m_h2, m_p2, kMod2, a - m_start, length) == Sub(m_h2, m_p2, kMod2, b - m_start, length);
    }

private:
    static constexpr uint64_t kMod1 = 1000000007ULL, kMod2 = 998244353ULL;
    static constexpr uint64_t kBase1 = 911ULL, kBase2 = 3571ULL;

    void Extend(size_t count) {
        while (m_h1.size() <= count) {
            const auto byte = static_cast<unsigned char>(m_text[m_start + m_h1.size() - 1]);
            m_h1.push_back((m_h1.back() * kBase1 + byte + 1) % kMod1);
            m_h2.push_back((m_h2.back() * kBase2 + byte + 1) % kMod2);
            m_p1.push_back(m_p1.back() * kBase1 % kMod1);
            m_p2.push_back(m_p2.back() * kBase2 % kMod2);
        }
    }
    static uint64_t Sub(const std::vector<uint64_t>& h, const std::vector<uint64_t>& p, uint64_t mod,
                        size_t from, size_t length) {
        return (h[from + length] + mod - h[from] * p[length] % mod) % mod;
    }

    const std::string& m_text;
    size_t m_start;
    std::vector<uint64_t> m_h1, m_h2, m_p1, m_p2;
};

// A token of a statement's rest, kept only when the content is read: words in capitals, quoted
// names and brace texts unescaped, numbers, and single characters.
struct Token {
    enum Kind { Word, Name, Number, Brace, Literal, Char } kind;
    std::string text;
};
using Tokens = std::vector<Token>;

struct PendingObject {
    TypeID type;
    QualifiedName name;
    Tokens rest;
};

bool IsWord(const Tokens& tokens, size_t i, const char* word) {
    return i < tokens.size() && tokens[i].kind == Token::Word && tokens[i].text == word;
}
bool IsChar(const Tokens& tokens, size_t i, char c) {
    return i < tokens.size() && tokens[i].kind == Token::Char && tokens[i].text[0] == c;
}

// A quoted name path from tokens[i], as UDML writes it; `i` moves past it. Empty when none is there.
std::string PathText(const Tokens& tokens, size_t& i) {
    std::string out;
    while (i < tokens.size() && tokens[i].kind == Token::Name) {
        out += out.empty() ? "\"" : ".\"";
        for (const char c : tokens[i].text) {
            out.push_back(c);
            if (c == '"')
                out.push_back('"');
        }
        out.push_back('"');
        ++i;
        if (!IsChar(tokens, i, '.') || i + 1 >= tokens.size() || tokens[i + 1].kind != Token::Name)
            break;
        ++i;
    }
    return out;
}

// "( path, path )" from tokens[i] (at the "("), the paths joined by ", ".
std::string PathList(const Tokens& tokens, size_t& i) {
    std::string out;
    ++i;
    while (i < tokens.size() && !IsChar(tokens, i, ')')) {
        const std::string path = PathText(tokens, i);
        if (path.empty()) {
            ++i; // not the generator's shape: whatever it is, the list goes on to its ")"
            continue;
        }
        out += (out.empty() ? "" : ", ") + path;
    }
    return out;
}

// "( {key} = {value}, ... )" from tokens[i] (at the "("), as "key = value" joined by ", ".
std::string PropertyList(const Tokens& tokens, size_t& i) {
    std::string out;
    size_t depth = 0;
    for (; i < tokens.size(); ++i) {
        const Token& token = tokens[i];
        if (token.kind == Token::Char && token.text[0] == '(') {
            if (depth++ == 0)
                continue;
        } else if (token.kind == Token::Char && token.text[0] == ')') {
            if (--depth == 0)
                break;
        }
        if (token.kind == Token::Char && token.text[0] == ',') {
            out += ", ";
        } else if (token.kind == Token::Char && token.text[0] == '=') {
            out += " = ";
        } else {
            out += token.text;
        }
    }
    return out;
}

// What the rest of a statement (or of a column list entry) says about its object. Pieces the
// generator does not write there are passed over: content never makes a statement fail.
UdmlFields FieldsOf(TypeID type, const Tokens& tokens) {
    UdmlFields fields;
    for (size_t i = 0; i < tokens.size(); ++i) {
        const bool column = type == kTIDAColumn;
        const bool keyed = type == kTIDATableKey || type == kTIDAForeignKey;
        if (column && IsWord(tokens, i, "TYPE") && !fields.count("type") && i + 1 < tokens.size() &&
            tokens[i + 1].kind == Token::Word) {
            fields["type"] = tokens[++i].text;
        } else if (column && (IsWord(tokens, i, "PRECISION") || IsWord(tokens, i, "SCALE")) &&
                   i + 1 < tokens.size() && tokens[i + 1].kind == Token::Number) {
            fields[tokens[i].text == "SCALE" ? "scale" : "precision"] = tokens[i + 1].text;
            ++i;
        } else if (column && IsWord(tokens, i, "NOT") && IsWord(tokens, i + 1, "NULLABLE")) {
            fields["nullable"] = "NOT NULLABLE";
            ++i;
        } else if (column && IsWord(tokens, i, "NULLABLE")) {
            fields["nullable"] = "NULLABLE";
        } else if ((column || type == kTIDATable) && IsWord(tokens, i, "DESCRIPTION") &&
                   i + 1 < tokens.size() && tokens[i + 1].kind == Token::Brace) {
            fields["description"] = tokens[++i].text;
        } else if ((column || type == kTIDATable) && IsWord(tokens, i, "PROPERTIES") &&
                   IsChar(tokens, i + 1, '(')) {
            fields["properties"] = PropertyList(tokens, ++i);
        } else if (keyed && IsWord(tokens, i, "HAVING") && IsChar(tokens, i + 1, '(') &&
                   !fields.count("columns")) {
            fields["columns"] = PathList(tokens, ++i);
        } else if (type == kTIDAForeignKey && IsWord(tokens, i, "REFERENCES") &&
                   !fields.count("references")) {
            ++i;
            fields["references"] = PathText(tokens, i);
            --i;
        }
    }
    return fields;
}

enum class EntryEnd { NextColumn, EndOfList, EndOfStatement };

class Reader {
public:
    Reader(ARpGateway* gateway, const std::string& text, const std::string& sourceName, UdmlContent* content)
        : m_gateway(gateway), m_text(text), m_source(sourceName), m_content(content) {}

    void Run() {
        const size_t bad = FindIllFormedUtf8(m_text);
        if (bad != std::string::npos) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "0x%02X", static_cast<unsigned char>(m_text[bad]));
            Fail(bad, std::string("ill-formed UTF-8 (byte ") + hex + ")");
        }
        if (m_text.compare(0, 3, "\xEF\xBB\xBF") == 0)
            m_pos = 3;
        for (;;) {
            SkipBlanks();
            if (AtEnd())
                return;
            Statement();
        }
    }

private:
    // ---- positions, lines and messages ----

    bool AtEnd() const { return m_pos >= m_text.size(); }
    char Peek(size_t at) const { return at < m_text.size() ? m_text[at] : '\0'; }

    size_t LineOf(size_t pos) {
        if (pos > m_text.size())
            pos = m_text.size();
        if (pos < m_linePos) { // only on the way to an error
            m_line = 1;
            m_linePos = 0;
        }
        for (; m_linePos < pos; ++m_linePos) {
            if (m_text[m_linePos] == '\n')
                ++m_line;
        }
        return m_line;
    }

    [[noreturn]] void Fail(size_t pos, const std::string& message) {
        if (pos > m_text.size())
            pos = m_text.size();
        // The column counts characters, not bytes, as an editor shows it.
        size_t column = 1;
        for (size_t at = pos; at > 0 && m_text[at - 1] != '\n'; --at)
            column += (static_cast<unsigned char>(m_text[at - 1]) & 0xC0) != 0x80;
        throw ErrorMessage(Wide(m_source + ":" + std::to_string(LineOf(pos)) + ":" + std::to_string(column) +
                                ": " + message));
    }

    std::string Describe(size_t pos) const {
        if (pos >= m_text.size())
            return "end of input";
        size_t end = pos + 1;
        if (IsWordStart(m_text[pos])) {
            while (end < m_text.size() && IsWordChar(m_text[end]) && end - pos < 40)
                ++end;
        } else {
            while (end < m_text.size() && (static_cast<unsigned char>(m_text[end]) & 0xC0) == 0x80)
                ++end; // the whole UTF-8 character
        }
        return "'" + m_text.substr(pos, end - pos) + "'";
    }

    [[noreturn]] void Expected(size_t pos, const std::string& what) {
        Fail(pos, "expected " + what + ", found " + Describe(pos));
    }

    std::string Context() const {
        return "the " + m_head + " statement begun on line " + std::to_string(m_headLine);
    }

    // ---- tokens ----

    void SkipBlanks() {
        while (m_pos < m_text.size() && IsBlank(m_text[m_pos]))
            ++m_pos;
    }

    size_t SkipBlanksFrom(size_t at) const {
        while (at < m_text.size() && IsBlank(m_text[at]))
            ++at;
        return at;
    }

    /// Length of the word at `at` when it is `keyword` ignoring case (ASCII), else 0.
    size_t KeywordAt(size_t at, const char* keyword) const {
        const size_t n = std::strlen(keyword);
        if (at + n > m_text.size())
            return 0;
        for (size_t i = 0; i < n; ++i) {
            char c = m_text[at + i];
            if (c >= 'a' && c <= 'z')
                c = static_cast<char>(c - 'a' + 'A');
            if (c != keyword[i])
                return 0;
        }
        return IsWordChar(Peek(at + n)) ? 0 : n;
    }

    bool AcceptKeyword(const char* keyword) {
        SkipBlanks();
        const size_t n = KeywordAt(m_pos, keyword);
        m_pos += n;
        return n != 0;
    }

    void ExpectKeyword(const char* keyword) {
        if (!AcceptKeyword(keyword))
            Expected(m_pos, keyword);
    }

    /// A double-quoted name with inner quotes doubled, from the opening quote at m_pos; appends
    /// the unescaped UTF-8 bytes to `raw`.
    void QuotedName(std::string& raw) {
        const size_t open = m_pos++;
        for (;;) {
            const size_t close = m_text.find('"', m_pos);
            if (close == std::string::npos)
                Fail(open, "unterminated quoted name (no closing '\"')");
            raw.append(m_text, m_pos, close - m_pos);
            m_pos = close + 1;
            if (Peek(m_pos) != '"')
                return;
            raw.push_back('"');
            ++m_pos;
        }
    }

    /// A quoted, dot-separated name path at `at` (blanks before it skipped), of any number of parts;
    /// `last` receives the raw bytes of its last part. On success `at` is past the path; without a
    /// quote at the start, false. An unterminated quoted name is a failure.
    bool TryPath(size_t& at, QualifiedName& name, std::string& last) {
        const size_t saved = m_pos;
        m_pos = SkipBlanksFrom(at);
        name.clear();
        for (;;) {
            if (Peek(m_pos) != '"') {
                if (name.empty()) {
                    m_pos = saved;
                    return false;
                }
                Expected(m_pos, "a quoted name part");
            }
            last.clear();
            QuotedName(last);
            name.push_back(Wide(last));
            const size_t dot = SkipBlanksFrom(m_pos);
            if (Peek(dot) != '.')
                break;
            m_pos = SkipBlanksFrom(dot + 1);
        }
        at = m_pos;
        m_pos = saved;
        return true;
    }

    QualifiedName Path(const char* what, std::string& last) {
        QualifiedName name;
        size_t at = m_pos;
        if (!TryPath(at, name, last))
            Expected(SkipBlanksFrom(m_pos), std::string("a quoted ") + what + " name");
        m_pos = at;
        return name;
    }

    /// The statement kinds, by what follows a display name where the generator writes one.
    enum Kind { kCatalog, kSchema, kTable, kColumn, kKey, kKindCount };

    /// Whether the text after the quote at `quote` continues a statement of `kind` as the
    /// generator writes it: a ";" where the display name can end the statement, or blanks and a
    /// word that the generator writes after the display name. `loosely`: a ";", ",", ")", or
    /// blanks and any word.
    bool ContinuesAt(size_t quote, Kind kind, bool loosely) const {
        static const std::vector<const char*> kFollowers[kKindCount] = {
            {},
            {"WS"},
            {"HAVING", "NOT", "NO", "DESCRIPTION", "URI", "PROPERTIES", "WS"},
            {"EXTERNAL", "TYPE"},
            {"HAVING"}};
        const size_t at = SkipBlanksFrom(quote + 1);
        const char c = Peek(at);
        if (c == ';')
            return loosely || kind == kCatalog || kind == kSchema || kind == kTable;
        if (loosely && (c == ',' || c == ')'))
            return true;
        if (at == quote + 1)
            return false;
        if (loosely)
            return IsWordStart(c);
        for (const char* word : kFollowers[kind]) {
            if (KeywordAt(at, word) != 0)
                return true;
        }
        return false;
    }

    /// An optional " AS " with the display name, which the generator writes raw. Wherever the
    /// generator writes it, it is the last name part itself, so that reading is tried first.
    /// Otherwise the name ends at the first quote after which the statement continues as the
    /// generator writes it, or failing that, continues at all.
    void DisplayName(const std::string& last, Kind kind) {
        if (!AcceptKeyword("AS"))
            return;
        SkipBlanks();
        if (Peek(m_pos) != '"')
            return; // not the generator's shape, skipped with the rest
        const size_t open = m_pos;
        if (m_text.compare(open + 1, last.size(), last) == 0 && Peek(open + 1 + last.size()) == '"' &&
            ContinuesAt(open + 1 + last.size(), kind, true)) {
            m_pos = open + last.size() + 2;
            return;
        }
        for (const bool loosely : {false, true}) {
            // A scan that found no continuation up to the end holds for every later start as
            // well, which keeps repeated failing scans linear.
            size_t& noneFrom = m_noContinuationFrom[loosely][kind];
            if (open + 1 >= noneFrom)
                continue;
            for (size_t quote = m_text.find('"', open + 1); quote != std::string::npos;
                 quote = m_text.find('"', quote + 1)) {
                if (ContinuesAt(quote, kind, loosely)) {
                    m_pos = quote + 1;
                    return;
                }
            }
            noneFrom = open + 1;
        }
        std::string ignored;
        QuotedName(ignored); // lets what follows report where the statement breaks off
    }

    // ---- statements ----

    void Statement() {
        m_headLine = LineOf(m_pos);
        if (!AcceptKeyword("DECLARE"))
            Expected(m_pos, "DECLARE at the start of a statement");
        std::vector<PendingObject> pending;
        std::string last;
        SkipBlanks();
        const size_t kindPos = m_pos;
        auto declares = [&](TypeID type, const char* head, const char* what, Kind kind) {
            m_head = head;
            pending.push_back({type, Path(what, last), {}});
            DisplayName(last, kind);
        };
        bool ended = false;
        if (AcceptKeyword("CATALOG")) {
            declares(kTIDACatalog, "DECLARE CATALOG", "catalog", kCatalog);
        } else if (AcceptKeyword("SCHEMA")) {
            declares(kTIDASchema, "DECLARE SCHEMA", "schema", kSchema);
        } else if (AcceptKeyword("TABLE")) {
            if (AcceptKeyword("KEY")) {
                declares(kTIDATableKey, "DECLARE TABLE KEY", "table key", kKey);
            } else {
                declares(kTIDATable, "DECLARE TABLE", "table", kTable);
                if (AcceptKeyword("HAVING"))
                    ended = ColumnList(pending);
            }
        } else if (AcceptKeyword("COLUMN")) {
            declares(kTIDAColumn, "DECLARE COLUMN", "column", kColumn);
        } else if (AcceptKeyword("FOREIGN")) {
            ExpectKeyword("KEY");
            declares(kTIDAForeignKey, "DECLARE FOREIGN KEY", "foreign key", kKey);
        } else if (AcceptKeyword("JOIN")) {
            m_head = "DECLARE JOIN";
            Join();
            return;
        } else {
            Expected(kindPos, "CATALOG, SCHEMA, TABLE, TABLE KEY, COLUMN, FOREIGN KEY or JOIN after DECLARE");
        }
        if (!ended)
            SkipRest(false, &pending.front().rest);
        // Declared only once the whole statement has been read, so a failing one leaves no trace.
        for (const PendingObject& object : pending) {
            if (m_gateway)
                m_gateway->DeclareObject(object.type, object.name);
            if (m_content)
                m_content->Merge(object.type, object.name, FieldsOf(object.type, object.rest));
        }
    }

    /// The column list after HAVING; true when a ";" inside it ended the whole statement (a list
    /// cut short, as the generator leaves one whose source failed).
    bool ColumnList(std::vector<PendingObject>& pending) {
        SkipBlanks();
        if (Peek(m_pos) != '(')
            return false; // not a column list: the rest is skipped
        ++m_pos;
        SkipBlanks();
        if (Peek(m_pos) == ')') {
            ++m_pos;
            return false;
        }
        std::string last;
        for (;;) {
            SkipBlanks();
            if (AtEnd())
                Expected(m_pos, "';' ending " + Context());
            pending.push_back({kTIDAColumn, Path("column", last), {}});
            DisplayName(last, kColumn);
            switch (SkipRest(true, &pending.back().rest)) {
            case EntryEnd::NextColumn:
                break;
            case EntryEnd::EndOfList:
                return false;
            case EntryEnd::EndOfStatement:
                return true;
            }
        }
    }

    // DECLARE JOIN "<name>" AS "<name>" EXTERNAL "<external>" ON TABLES (<table>, <table>) ...;
    // with the three texts raw. The join name is the text that repeats around AS, as the
    // generator writes it; otherwise it ends at the first quote that AS, EXTERNAL or ON TABLES
    // follows. The two tables follow the first '" ON TABLES (' after it that holds two table names.
    void Join() {
        SkipBlanks();
        if (Peek(m_pos) != '"')
            Expected(m_pos, "the join name in '\"'");
        const size_t nameStart = m_pos + 1;
        size_t tablesFrom = 0;
        size_t nameEnd = RepeatedJoinName(nameStart, tablesFrom);
        if (nameEnd == std::string::npos) {
            for (size_t quote = m_text.find('"', nameStart); quote != std::string::npos;
                 quote = m_text.find('"', quote + 1)) {
                const size_t at = SkipBlanksFrom(quote + 1);
                if (at != quote + 1 && (QuoteAfterKeyword(at, "AS") || QuoteAfterKeyword(at, "EXTERNAL") ||
                                        OnTablesAt(quote) != 0)) {
                    nameEnd = tablesFrom = quote;
                    break;
                }
            }
        }
        if (nameEnd == std::string::npos)
            Fail(nameStart - 1, "expected the join name in '\"' followed by AS, EXTERNAL or ON TABLES");
        const WyString name = Wide(m_text.substr(nameStart, nameEnd - nameStart));

        std::string last;
        QualifiedName first, second;
        for (size_t quote = m_text.find('"', tablesFrom); quote != std::string::npos;
             quote = m_text.find('"', quote + 1)) {
            size_t at = OnTablesAt(quote);
            if (at == 0 || !TryPath(at, first, last))
                continue;
            at = SkipBlanksFrom(at);
            if (Peek(at) != ',' || !TryPath(++at, second, last))
                continue;
            at = SkipBlanksFrom(at);
            if (Peek(at) != ')')
                continue;
            m_pos = at + 1;
            SkipRest(false);
            if (m_gateway)
                m_gateway->DeclareComplexJoin(name, first, second);
            if (m_content) {
                m_content->Merge(kTIDAComplexJoin, {first.empty() ? WyString() : first.front(), name},
                                 {{"tables", UdmlContent::QualifiedText(first) + ", " +
                                                 UdmlContent::QualifiedText(second)}});
            }
            return;
        }
        Fail(nameStart - 1, "expected ON TABLES (<table>, <table>) after the join's names");
    }

    /// The end of a join name written twice, as "<name>" AS "<name>" EXTERNAL "...", from its
    /// first character; `externalStart` receives the offset after the quote that opens the
    /// external name. npos when the text is not of that shape.
    size_t RepeatedJoinName(size_t nameStart, size_t& externalStart) {
        PrefixHash hash(m_text, nameStart);
        for (size_t quote = m_text.find('"', nameStart); quote != std::string::npos;
             quote = m_text.find('"', quote + 1)) {
            // Candidate: the name ends at this quote and is followed by blanks, AS, blanks, '"'.
            const size_t again = QuoteAfterKeyword(SkipBlanksFrom(quote + 1), "AS");
            if (again == 0 || again == quote + 1)
                continue;
            const size_t length = quote - nameStart;
            if (again + length >= m_text.size() || m_text[again + length] != '"')
                continue;
            const size_t external = QuoteAfterKeyword(SkipBlanksFrom(again + length + 1), "EXTERNAL");
            if (external == 0 || external == again + length + 1)
                continue;
            if (!hash.SameHash(nameStart, again, length) ||
                m_text.compare(again, length, m_text, nameStart, length) != 0)
                continue;
            externalStart = external;
            return quote;
        }
        return std::string::npos;
    }

    /// When `keyword` stands at `at`, followed by blanks and '"': the offset after that quote;
    /// else 0.
    size_t QuoteAfterKeyword(size_t at, const char* keyword) const {
        const size_t length = KeywordAt(at, keyword);
        if (length == 0)
            return 0;
        const size_t quote = SkipBlanksFrom(at + length);
        return quote != at + length && Peek(quote) == '"' ? quote + 1 : 0;
    }

    /// When the quote at `quote` is followed by blanks, ON, blanks, TABLES, blanks and '(': the
    /// offset after the '('; else 0.
    size_t OnTablesAt(size_t quote) const {
        size_t at = SkipBlanksFrom(quote + 1);
        if (at == quote + 1 || KeywordAt(at, "ON") == 0)
            return 0;
        const size_t onEnd = at + 2;
        at = SkipBlanksFrom(onEnd);
        if (at == onEnd || KeywordAt(at, "TABLES") == 0)
            return 0;
        at = SkipBlanksFrom(at + 6);
        return Peek(at) == '(' ? at + 1 : 0;
    }

    /// Skips tokens to the statement's ';' (consumed), or in a column list to the ',' or ')'
    /// (consumed) that ends the entry at its own level, or a ';' that ends the statement there.
    /// Whatever words come before, DECLARE among them, belong to the skipped rest.
    EntryEnd SkipRest(bool inColumnList, Tokens* tokens = nullptr) {
        if (!m_content)
            tokens = nullptr;
        else if (tokens)
            tokens->reserve(32); // a column entry as the generator writes it, without growing
        auto keep = [tokens](Token::Kind kind, std::string text) {
            if (tokens)
                tokens->push_back({kind, std::move(text)});
        };
        size_t depth = 0;
        const char* word1 = ""; // the last two words, as keywords
        const char* word2 = "";
        for (;;) {
            SkipBlanks();
            if (AtEnd())
                Expected(m_pos, "';' ending " + Context());
            const size_t at = m_pos;
            const char c = m_text[at];
            const char* word = "";
            if (c == ';') {
                ++m_pos;
                return EntryEnd::EndOfStatement;
            } else if (c == '(') {
                ++depth;
                ++m_pos;
                keep(Token::Char, "(");
            } else if (c == ')') {
                ++m_pos;
                if (depth == 0 && inColumnList)
                    return EntryEnd::EndOfList;
                depth -= depth != 0;
                keep(Token::Char, ")");
            } else if (c == ',') {
                ++m_pos;
                if (depth == 0 && inColumnList)
                    return EntryEnd::NextColumn;
                keep(Token::Char, ",");
            } else if (c == '"') {
                std::string name;
                QuotedName(name);
                keep(Token::Name, std::move(name));
            } else if (c == '{') {
                std::string text;
                BraceText(std::strcmp(word2, "EXPRESSION") == 0, tokens ? &text : nullptr);
                keep(Token::Brace, std::move(text));
            } else if ((c >= '0' && c <= '9') || (c == '-' && Peek(at + 1) >= '0' && Peek(at + 1) <= '9')) {
                // Precision and scale are written as the source gives them, a negative one too.
                ++m_pos;
                while (m_pos < m_text.size() && m_text[m_pos] >= '0' && m_text[m_pos] <= '9')
                    ++m_pos;
                keep(Token::Number, m_text.substr(at, m_pos - at));
            } else if (c == '\'') {
                if (std::strcmp(word1, "MAPPED") == 0 && std::strcmp(word2, "COLUMN") == 0)
                    RawLiteral("MAPPED COLUMN", {"MVLINK"}, false);
                else if (std::strcmp(word2, "MVLINK") == 0)
                    RawLiteral("MVLINK", {"PICKLIST", "INPUTPARAM", "PROPERTIES", "DESCRIPTION"}, false);
                else if (std::strcmp(word2, "URI") == 0)
                    RawLiteral("URI", {"PROPERTIES", "WS"}, true);
                else
                    QuotedLiteral();
            } else if (IsWordStart(c)) {
                static const char* const kTracked[] = {"MAPPED", "COLUMN", "MVLINK", "URI", "EXPRESSION"};
                for (const char* keyword : kTracked) {
                    if (KeywordAt(at, keyword))
                        word = keyword;
                }
                while (m_pos < m_text.size() && IsWordChar(m_text[m_pos]))
                    ++m_pos;
                if (tokens) {
                    std::string upper = m_text.substr(at, m_pos - at);
                    for (char& letter : upper) {
                        if (letter >= 'a' && letter <= 'z')
                            letter = static_cast<char>(letter - 'a' + 'A');
                    }
                    keep(Token::Word, std::move(upper));
                }
            } else {
                ++m_pos;
                keep(Token::Char, std::string(1, c));
            }
            word1 = word2;
            word2 = word;
        }
    }

    /// {...} with "\" taking the next character as it is. In a join's external expression the
    /// quoted names are written unescaped, so there a quoted name is one token, braces and all.
    void BraceText(bool expression, std::string* text = nullptr) {
        const size_t open = m_pos++;
        for (;;) {
            if (AtEnd())
                Fail(open, "unterminated brace text (no closing '}')");
            const char c = m_text[m_pos];
            if (c == '}') {
                ++m_pos;
                return;
            }
            if (c == '\\') {
                if (text && m_pos + 1 < m_text.size())
                    text->push_back(m_text[m_pos + 1]);
                m_pos += 2;
                continue;
            }
            if (c == '"' && expression) {
                const size_t from = m_pos;
                std::string ignored;
                QuotedName(ignored);
                if (text)
                    text->append(m_text, from, m_pos - from);
                continue;
            }
            if (text)
                text->push_back(c);
            ++m_pos;
        }
    }

    /// '...' with '' standing for one quote.
    void QuotedLiteral() {
        const size_t open = m_pos++;
        for (;;) {
            const size_t close = m_text.find('\'', m_pos);
            if (close == std::string::npos)
                Fail(open, "unterminated quoted literal (no closing \"'\")");
            m_pos = close + 1;
            if (Peek(m_pos) != '\'')
                return;
            ++m_pos;
        }
    }

    /// A raw '...' text: it ends at the first quote that blanks and one of `followers` come
    /// after, or with `orSemicolon`, a ';' that ends the line as the generator writes it, or
    /// failing that, any ';'.
    void RawLiteral(const char* after, std::initializer_list<const char*> followers, bool orSemicolon) {
        const size_t open = m_pos;
        for (const bool loosely : {false, true}) {
            if (loosely && !orSemicolon)
                break;
            if (!loosely && orSemicolon && open + 1 >= m_noLineEndFrom)
                continue; // no ';' ends a line after here: see below
            for (size_t quote = m_text.find('\'', open + 1); quote != std::string::npos;
                 quote = m_text.find('\'', quote + 1)) {
                const size_t at = SkipBlanksFrom(quote + 1);
                const char next = Peek(at + 1);
                bool ends =
                    orSemicolon && Peek(at) == ';' && (loosely || next == '\n' || at + 1 >= m_text.size());
                if (at != quote + 1) {
                    for (const char* follower : followers)
                        ends = ends || KeywordAt(at, follower) != 0;
                }
                if (ends) {
                    m_pos = quote + 1;
                    return;
                }
            }
            if (orSemicolon)
                m_noLineEndFrom = open + 1; // a later scan from further on finds none either
        }
        Fail(open, std::string("unterminated text after ") + after);
    }

    ARpGateway* m_gateway; // null when only the content is read
    const std::string& m_text;
    const std::string& m_source;
    UdmlContent* m_content; // null when only the names are read
    size_t m_pos = 0;
    size_t m_line = 1, m_linePos = 0; // m_line is the line of offset m_linePos
    std::string m_head;
    size_t m_headLine = 1;
    // A start after which no raw text is ended by a ';' at the end of a line.
    size_t m_noLineEndFrom = std::string::npos;
    // Per strictness and kind, a start from which no quote up to the end continues a statement.
    size_t m_noContinuationFrom[2][kKindCount] = {
        {std::string::npos, std::string::npos, std::string::npos, std::string::npos, std::string::npos},
        {std::string::npos, std::string::npos, std::string::npos, std::string::npos, std::string::npos}};
};

} // namespace

void UdmlReader::ReadText(ARpGateway& gateway, const std::string& text, const std::string& sourceName,
                          UdmlContent* content) {
    Reader(&gateway, text, sourceName, content).Run();
}

namespace {

std::string WholeFile(const std::string& path) {
    auto failure = [&path](int error) {
        return ErrorMessage(Wide("cannot read " + path + ": " + std::strerror(error)));
    };
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw failure(errno);
    std::string text;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0)
        text.reserve(static_cast<size_t>(info.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            const int error = errno;
            ::close(fd);
            throw failure(error);
        }
        if (got == 0)
            break;
        text.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return text;
}

} // namespace

void UdmlReader::ReadFile(ARpGateway& gateway, const std::string& path, UdmlContent* content) {
    ReadText(gateway, WholeFile(path), path, content);
}

void UdmlReader::ReadContent(const std::string& path, UdmlContent& content) {
    const std::string text = WholeFile(path);
    Reader(nullptr, text, path, &content).Run();
}
