// Reads UDML back into the repository: each statement's head and qualified names are parsed, the
// rest is skipped token by token. Several texts are written raw by the generator (display names,
// join names, mapped columns, view links, URIs), so each is delimited by what must follow it.
// Every scan moves forward only, keeping the reader linear in its input whatever that input is.
#include "platform/repository/UdmlReader.h"

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

struct PendingObject {
    TypeID type;
    QualifiedName name;
};

enum class EntryEnd { NextColumn, EndOfList };

class Reader {
public:
    Reader(ARpGateway& gateway, const std::string& text, const std::string& sourceName)
        : m_gateway(gateway), m_text(text), m_source(sourceName) {}

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
        throw ErrorMessage(Wide(m_source + ":" + std::to_string(LineOf(pos)) + ": " + message));
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

    void ExpectChar(char c, const std::string& what) {
        SkipBlanks();
        if (Peek(m_pos) != c)
            Expected(m_pos, what);
        ++m_pos;
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

    /// A quoted, dot-separated name path of exactly `parts` parts; `last` receives the raw bytes
    /// of its last part.
    QualifiedName Path(size_t parts, const char* what, std::string& last) {
        SkipBlanks();
        const size_t start = m_pos;
        QualifiedName name;
        for (;;) {
            if (Peek(m_pos) != '"')
                Expected(m_pos,
                         name.empty() ? std::string("a quoted ") + what + " name" : "a quoted name part");
            last.clear();
            QuotedName(last);
            name.push_back(Wide(last));
            const size_t dot = SkipBlanksFrom(m_pos);
            if (Peek(dot) != '.')
                break;
            m_pos = SkipBlanksFrom(dot + 1);
        }
        if (name.size() != parts)
            Fail(start, std::string("expected a ") + what + " name of " + std::to_string(parts) +
                            " parts, found " + std::to_string(name.size()));
        return name;
    }

    /// " AS " and the display name, which the generator writes raw: it is the last name part
    /// itself, so it is matched as such. A display name with doubled quotes is accepted too.
    void DisplayName(const std::string& last) {
        ExpectKeyword("AS");
        SkipBlanks();
        if (Peek(m_pos) != '"')
            Expected(m_pos, "the display name in '\"'");
        if (m_text.compare(m_pos + 1, last.size(), last) == 0 && Peek(m_pos + 1 + last.size()) == '"') {
            m_pos += last.size() + 2;
            return;
        }
        std::string ignored;
        QuotedName(ignored);
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
        if (AcceptKeyword("CATALOG")) {
            m_head = "DECLARE CATALOG";
            pending.push_back({kTIDACatalog, Path(2, "catalog", last)});
            DisplayName(last);
        } else if (AcceptKeyword("SCHEMA")) {
            m_head = "DECLARE SCHEMA";
            pending.push_back({kTIDASchema, Path(3, "schema", last)});
            DisplayName(last);
        } else if (AcceptKeyword("TABLE")) {
            if (AcceptKeyword("KEY")) {
                m_head = "DECLARE TABLE KEY";
                pending.push_back({kTIDATableKey, Path(5, "table key", last)});
                DisplayName(last);
            } else {
                m_head = "DECLARE TABLE";
                pending.push_back({kTIDATable, Path(4, "table", last)});
                DisplayName(last);
                if (AcceptKeyword("HAVING"))
                    ColumnList(pending);
            }
        } else if (AcceptKeyword("COLUMN")) {
            m_head = "DECLARE COLUMN";
            pending.push_back({kTIDAColumn, Path(5, "column", last)});
            DisplayName(last);
        } else if (AcceptKeyword("FOREIGN")) {
            ExpectKeyword("KEY");
            m_head = "DECLARE FOREIGN KEY";
            pending.push_back({kTIDAForeignKey, Path(5, "foreign key", last)});
            DisplayName(last);
        } else if (AcceptKeyword("JOIN")) {
            m_head = "DECLARE JOIN";
            Join();
            return;
        } else {
            Expected(kindPos, "CATALOG, SCHEMA, TABLE, TABLE KEY, COLUMN, FOREIGN KEY or JOIN after DECLARE");
        }
        SkipRest(false);
        // Declared only once the whole statement has been read, so a failing one leaves no trace.
        for (const PendingObject& object : pending)
            m_gateway.DeclareObject(object.type, object.name);
    }

    void ColumnList(std::vector<PendingObject>& pending) {
        ExpectChar('(', "'(' after HAVING");
        SkipBlanks();
        if (Peek(m_pos) == ')') {
            ++m_pos;
            return;
        }
        std::string last;
        for (;;) {
            pending.push_back({kTIDAColumn, Path(5, "column", last)});
            DisplayName(last);
            if (SkipRest(true) == EntryEnd::EndOfList)
                return;
        }
    }

    // DECLARE JOIN "<name>" AS "<name>" EXTERNAL "<external>" ON TABLES (<table>, <table>) ...;
    // with both names raw. The join name is the text that repeats around AS; the external name
    // runs to the first '"' that ON TABLES ( follows.
    void Join() {
        SkipBlanks();
        if (Peek(m_pos) != '"')
            Expected(m_pos, "the join name in '\"'");
        const size_t nameStart = m_pos + 1;
        PrefixHash hash(m_text, nameStart);
        size_t nameEnd = std::string::npos, afterEnd = 0;
        for (size_t quote = m_text.find('"', nameStart); quote != std::string::npos;
             quote = m_text.find('"', quote + 1)) {
            // Candidate: the name ends at this quote and is followed by blanks, AS, blanks, '"'.
            size_t at = SkipBlanksFrom(quote + 1);
            if (at == quote + 1 || KeywordAt(at, "AS") == 0)
                continue;
            const size_t asEnd = at + 2;
            at = SkipBlanksFrom(asEnd);
            if (at == asEnd || Peek(at) != '"')
                continue;
            const size_t length = quote - nameStart, again = at + 1;
            if (again + length >= m_text.size() || m_text[again + length] != '"')
                continue;
            const size_t external = ExternalKeywordAfter(again + length);
            if (external == 0)
                continue;
            if (!hash.SameHash(nameStart, again, length) ||
                m_text.compare(again, length, m_text, nameStart, length) != 0)
                continue;
            nameEnd = quote;
            afterEnd = external;
            break;
        }
        if (nameEnd == std::string::npos)
            Fail(nameStart - 1, "expected the join name twice, as \"<name>\" AS \"<name>\" EXTERNAL \"...\"");
        const WyString name = Wide(m_text.substr(nameStart, nameEnd - nameStart));

        // The external name: up to the first '"' followed by ON TABLES (.
        const size_t externalStart = afterEnd;
        size_t tables = std::string::npos;
        for (size_t quote = m_text.find('"', externalStart); quote != std::string::npos;
             quote = m_text.find('"', quote + 1)) {
            size_t at = SkipBlanksFrom(quote + 1);
            if (at == quote + 1 || KeywordAt(at, "ON") == 0)
                continue;
            const size_t onEnd = at + 2;
            at = SkipBlanksFrom(onEnd);
            if (at == onEnd || KeywordAt(at, "TABLES") == 0)
                continue;
            at = SkipBlanksFrom(at + 6);
            if (Peek(at) != '(')
                continue;
            tables = at + 1;
            break;
        }
        if (tables == std::string::npos)
            Fail(externalStart, "expected the external name followed by '\" ON TABLES ('");
        m_pos = tables;
        std::string last;
        const QualifiedName first = Path(4, "table", last);
        ExpectChar(',', "',' between the two tables");
        const QualifiedName second = Path(4, "table", last);
        ExpectChar(')', "')' after the two tables");
        SkipRest(false);
        m_gateway.DeclareComplexJoin(name, first, second);
    }

    /// When `quote` is a '"' followed by blanks, EXTERNAL, blanks and '"': the offset after that
    /// last quote; else 0.
    size_t ExternalKeywordAfter(size_t quote) const {
        size_t at = SkipBlanksFrom(quote + 1);
        if (at == quote + 1 || KeywordAt(at, "EXTERNAL") == 0)
            return 0;
        const size_t keywordEnd = at + 8;
        at = SkipBlanksFrom(keywordEnd);
        return at != keywordEnd && Peek(at) == '"' ? at + 1 : 0;
    }

    /// Skips tokens to the statement's ';' (consumed), or in a column list to the ',' or ')'
    /// (consumed) that ends the entry.
    EntryEnd SkipRest(bool inColumnList) {
        size_t depth = 0;
        const char* word1 = ""; // the last two words, as keywords
        const char* word2 = "";
        for (;;) {
            SkipBlanks();
            if (AtEnd())
                Expected(m_pos, inColumnList ? "',' or ')' in the column list of " + Context()
                                             : "';' ending " + Context());
            const size_t at = m_pos;
            const char c = m_text[at];
            const char* word = "";
            if (c == ';') {
                if (depth != 0 || inColumnList)
                    Expected(at, depth != 0 ? "')'" : "',' or ')' in the column list of " + Context());
                ++m_pos;
                return EntryEnd::EndOfList;
            } else if (c == '(') {
                ++depth;
                ++m_pos;
            } else if (c == ')') {
                ++m_pos;
                if (depth == 0) {
                    if (!inColumnList)
                        Expected(at, "';' ending " + Context());
                    return EntryEnd::EndOfList;
                }
                --depth;
            } else if (c == ',') {
                ++m_pos;
                if (depth == 0 && inColumnList)
                    return EntryEnd::NextColumn;
            } else if (c == '"') {
                std::string ignored;
                QuotedName(ignored);
            } else if (c == '{') {
                BraceText(std::strcmp(word2, "EXPRESSION") == 0);
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
                if (KeywordAt(at, "DECLARE"))
                    Expected(at, inColumnList ? "',' or ')' in the column list of " + Context()
                                              : "';' ending " + Context());
                for (const char* keyword : kTracked) {
                    if (KeywordAt(at, keyword))
                        word = keyword;
                }
                while (m_pos < m_text.size() && IsWordChar(m_text[m_pos]))
                    ++m_pos;
            } else {
                ++m_pos;
            }
            word1 = word2;
            word2 = word;
        }
    }

    /// {...} with "\" taking the next character as it is. In a join's external expression the
    /// quoted names are written unescaped, so there a quoted name is one token, braces and all.
    void BraceText(bool expression) {
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
                m_pos += 2;
                continue;
            }
            if (c == '"' && expression) {
                std::string ignored;
                QuotedName(ignored);
                continue;
            }
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

    /// A raw '...' text: it ends at the first quote that blanks and one of `followers` (or, with
    /// `orSemicolon`, a ';') come after.
    void RawLiteral(const char* after, std::initializer_list<const char*> followers, bool orSemicolon) {
        const size_t open = m_pos;
        for (size_t quote = m_text.find('\'', open + 1); quote != std::string::npos;
             quote = m_text.find('\'', quote + 1)) {
            const size_t at = SkipBlanksFrom(quote + 1);
            bool ends = orSemicolon && Peek(at) == ';';
            if (at != quote + 1) {
                for (const char* follower : followers)
                    ends = ends || KeywordAt(at, follower) != 0;
            }
            if (ends) {
                m_pos = quote + 1;
                return;
            }
        }
        Fail(open, std::string("unterminated text after ") + after);
    }

    ARpGateway& m_gateway;
    const std::string& m_text;
    const std::string& m_source;
    size_t m_pos = 0;
    size_t m_line = 1, m_linePos = 0; // m_line is the line of offset m_linePos
    std::string m_head;
    size_t m_headLine = 1;
};

} // namespace

void UdmlReader::ReadText(ARpGateway& gateway, const std::string& text, const std::string& sourceName) {
    Reader(gateway, text, sourceName).Run();
}

void UdmlReader::ReadFile(ARpGateway& gateway, const std::string& path) {
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
    ReadText(gateway, text, path);
}
