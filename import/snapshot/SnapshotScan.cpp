// The one-pass reading of snapshot documents. The parser is the JSON library's SAX interface fed
// byte by byte; a record is built as a small tree only while it is open, walked against its
// layout, handed to the sink and dropped. Repeated field names are refused (the library's own
// tree would silently merge them), and every failure names the file and the place.
#include "import/snapshot/SnapshotScan.h"

#include "import/snapshot/SnapshotFields.h"

#include "platform/BaseStringUtil.h"
#include "platform/SystemUtility.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <unordered_set>
#include <variant>

namespace snapshot_scan {
namespace {

using Json = nlohmann::ordered_json;

using snapshot_fields::kFormatName;

// Deeper than any snapshot goes, yet shallow enough that a file of nothing but "[" cannot make
// the open-container stack the size of the file.
constexpr size_t kMaxDepth = 10000;

// One step from a container to a value inside it: a field name, or an index when `key` is null.
struct PathStep {
    const std::string* key;
    size_t index;
};

bool IsPlainFieldName(const std::string& key) {
    if (key.empty())
        return false;
    for (char c : key)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
            return false;
    return true;
}

// Renders `tables[2].catalog`, or `pickLists["My list"][0]` for names that are not identifiers.
std::string RenderPath(const std::vector<PathStep>& steps) {
    std::string text;
    for (const PathStep& step : steps) {
        if (step.key == nullptr) {
            text += "[" + std::to_string(step.index) + "]";
        } else if (IsPlainFieldName(*step.key)) {
            if (!text.empty())
                text += ".";
            text += *step.key;
        } else {
            text += "[" + Json(*step.key).dump(-1, ' ', false, Json::error_handler_t::replace) + "]";
        }
    }
    return text.empty() ? "top level" : text;
}

ErrorMessage Failure(const std::string& message) {
    return ErrorMessage(BaseStringUtil::StringFrom(message.c_str(), SystemUtility::GetMultiByteCodePage()));
}

[[noreturn]] void Fail(const std::string& fileName, const std::string& where, const std::string& what) {
    throw Failure("snapshot " + fileName + ": " + where + ": " + what);
}

// The parser's explanation without its exception id and its own position, and with the text it
// quotes as last read cut to its end: that text runs back to the previous string or number token
// and may be long.
std::string ParserExplanation(const std::string& what) {
    constexpr size_t kQuotedTail = 40;
    std::string text = what;
    const size_t idEnd = text.find("] ");
    if (text.rfind("[json.exception.", 0) == 0 && idEnd != std::string::npos)
        text.erase(0, idEnd + 2);
    if (text.rfind("parse error", 0) == 0) {
        const size_t colon = text.find(": ");
        if (colon != std::string::npos)
            text.erase(0, colon + 2);
    }
    const std::string opening = "; last read: '";
    const size_t quoteStart = text.find(opening);
    if (quoteStart == std::string::npos)
        return text;
    const size_t begin = quoteStart + opening.size();
    size_t end = text.rfind("'; expected ");
    if (end == std::string::npos || end < begin)
        end = text.size() - 1;
    if (end <= begin || end - begin <= kQuotedTail)
        return text;
    size_t cut = end - kQuotedTail;
    while (cut < end && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        ++cut;
    return text.substr(0, begin) + "..." + text.substr(cut);
}

// A place in the document during the walk: parent link plus the step from the parent.
struct Path {
    const Path* parent;
    PathStep step;

    Path Field(const std::string& key) const { return Path{this, {&key, 0}}; }
    Path Element(size_t index) const { return Path{this, {nullptr, index}}; }

    std::string Render() const {
        std::vector<PathStep> steps;
        for (const Path* node = this; node != nullptr && node->parent != nullptr; node = node->parent)
            steps.insert(steps.begin(), node->step);
        return RenderPath(steps);
    }
};

const char* KindOf(const Json& value) {
    switch (value.type()) {
    case Json::value_t::null:
        return "null";
    case Json::value_t::object:
        return "an object";
    case Json::value_t::array:
        return "an array";
    case Json::value_t::string:
        return "a string";
    case Json::value_t::boolean:
        return "a boolean";
    case Json::value_t::number_float:
        return "a fractional number";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
        return "an integer";
    default:
        return "a value of another kind";
    }
}

// Checks one value of the document against its layout and converts it.
class Walker {
public:
    explicit Walker(const std::string& fileName) : m_fileName(fileName) {}

    void RequireKind(const Json& value, const Path& path, bool ok, const char* expected) const {
        if (!ok)
            Fail(m_fileName, path.Render(), std::string("expected ") + expected + ", found " + KindOf(value));
    }

    // Fills the fields of `record` that the object names; the others keep their fresh values.
    template <class Record> void ReadFields(const Json& object, const Path& path, Record& record) const {
        RequireKind(object, path, object.is_object(), "an object");
        constexpr auto& kFields = snapshot_fields::Layout<Record>::kFields;
        constexpr size_t kCount = std::size(kFields);
        // Fields mostly come in layout order, so the search starts after the last one found.
        size_t hint = 0;
        for (const auto& item : object.items()) {
            const Path fieldPath = path.Field(item.key());
            bool known = false;
            for (size_t step = 0; step < kCount && !known; ++step) {
                const size_t index = (hint + step) % kCount;
                if (item.key() == kFields[index].name) {
                    std::visit([&](auto member) { Read(item.value(), fieldPath, record.*member); },
                               kFields[index].member);
                    known = true;
                    hint = index + 1;
                }
            }
            if (!known)
                Fail(m_fileName, fieldPath.Render(), "unknown field name");
        }
    }

    void ReadPickLists(const Json& object, const Path& path,
                       std::map<WyString, MIColumnPickListFieldVector>& out) const {
        RequireKind(object, path, object.is_object(), "an object");
        for (const auto& item : object.items()) {
            WyString name;
            BaseStringUtil::AppendFromUtf8(item.key().data(), item.key().size(), name);
            Read(item.value(), path.Field(item.key()), out[name]);
        }
    }

private:
    template <class Record> void Read(const Json& array, const Path& path, std::vector<Record>& out) const {
        RequireKind(array, path, array.is_array(), "an array");
        out.reserve(array.size());
        for (size_t index = 0; index < array.size(); ++index) {
            out.emplace_back();
            ReadFields(array[index], path.Element(index), out.back());
        }
    }

    void Read(const Json& value, const Path& path, WyString& out) const {
        RequireKind(value, path, value.is_string(), "a string");
        const std::string& utf8 = value.get_ref<const std::string&>();
        out.clear();
        BaseStringUtil::AppendFromUtf8(utf8.data(), utf8.size(), out);
    }

    void Read(const Json& value, const Path& path, bool& out) const {
        RequireKind(value, path, value.is_boolean(), "true or false");
        out = value.get<bool>();
    }

    void Read(const Json& value, const Path& path, uint16& out) const { Integer(value, path, out); }
    void Read(const Json& value, const Path& path, uint32& out) const { Integer(value, path, out); }
    void Read(const Json& value, const Path& path, int32_t& out) const { Integer(value, path, out); }

    template <class Int> void Integer(const Json& value, const Path& path, Int& out) const {
        using Limits = std::numeric_limits<Int>;
        auto range = [] { return std::to_string(Limits::min()) + " to " + std::to_string(Limits::max()); };
        if (!value.is_number_integer())
            RequireKind(value, path, false, ("an integer from " + range()).c_str());
        const bool inRange = value.is_number_unsigned()
                                 ? value.get<uint64_t>() <= static_cast<uint64_t>(Limits::max())
                                 : value.get<int64_t>() >= static_cast<int64_t>(Limits::min()) &&
                                       value.get<int64_t>() <= static_cast<int64_t>(Limits::max());
        if (!inRange)
            Fail(m_fileName, path.Render(), value.dump() + " is out of range (" + range() + ")");
        out = value.get<Int>();
    }

    void Read(const Json& value, const Path& path, WyDataType& out) const {
        if (value.is_string()) {
            WyString name;
            Read(value, path, name);
            if (!WyDataTypeFromName(name, out))
                Fail(m_fileName, path.Render(), "unknown data type name " + value.dump());
            return;
        }
        RequireKind(value, path, value.is_number_integer(), "a data type name or number");
        int32_t number = 0;
        Integer(value, path, number);
        out = static_cast<WyDataType>(number);
    }

    void Read(const Json& array, const Path& path, WyStringVector& out) const {
        RequireKind(array, path, array.is_array(), "an array");
        out.assign(array.size(), WyString());
        for (size_t index = 0; index < array.size(); ++index)
            Read(array[index], path.Element(index), out[index]);
    }

    const std::string& m_fileName;
};

// The parser reads through this iterator; only comparisons with the end are ever made.
class ReaderIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;

    explicit ReaderIterator(ByteReader* reader) : m_reader(reader) {}
    char operator*() const { return m_reader->Peek(); }
    ReaderIterator& operator++() {
        m_reader->Advance();
        return *this;
    }
    bool operator==(const ReaderIterator& other) const { return AtEnd() == other.AtEnd(); }
    bool operator!=(const ReaderIterator& other) const { return !(*this == other); }

private:
    bool AtEnd() const { return m_reader == nullptr || m_reader->AtEnd(); }
    ByteReader* m_reader;
};

// A container's field names so far, to refuse a repeated one.
class NameSet {
public:
    bool Insert(const std::string& name) {
        constexpr size_t kLinearLimit = 32;
        if (!m_large) {
            // A bit per name's hash spares the search for nearly every new name.
            const size_t hash = std::hash<std::string>()(name);
            const uint64_t bit = uint64_t(1) << (hash % 64);
            uint64_t& seen = m_seen[(hash / 64) % 2];
            if ((seen & bit) != 0 && std::find(m_small.begin(), m_small.end(), name) != m_small.end())
                return false;
            seen |= bit;
            if (m_small.size() < kLinearLimit) {
                m_small.push_back(name);
                return true;
            }
            m_large = std::make_unique<std::unordered_set<std::string>>(m_small.begin(), m_small.end());
        }
        return m_large->insert(name).second;
    }

private:
    std::vector<std::string> m_small;
    uint64_t m_seen[2] = {0, 0};
    std::unique_ptr<std::unordered_set<std::string>> m_large;
};

// Follows the document's structure as the parser reports it. The values of the top level other
// than the record lists (the format, the source header, the pick lists) are built whole; each
// element of a record list is built, converted and handed to the sink when it closes. After the
// first value that does not fit its layout nothing more is built, but the rest is still parsed,
// since invalid JSON anywhere is reported before it.
class DocumentScanner : public nlohmann::json_sax<Json> {
public:
    DocumentScanner(ByteReader& reader, uint64_t start, const std::string& fileName, SourceMetadata& metadata,
                    RecordSink& sink)
        : m_reader(reader), m_start(start), m_fileName(fileName), m_metadata(metadata), m_sink(sink),
          m_walker(fileName) {}

    void Finish() const {
        if (m_rootFailure)
            throw *m_rootFailure;
        if (!m_format)
            Fail(m_fileName, "format", std::string("missing; expected \"") + kFormatName + "\"");
        if (!m_format->is_string() || m_format->get_ref<const std::string&>() != kFormatName)
            Fail(m_fileName, "format",
                 std::string("expected \"") + kFormatName + "\", found " +
                     m_format->dump(-1, ' ', false, Json::error_handler_t::replace));
        if (m_failure)
            throw *m_failure;
    }

    const std::string& SyntaxFailure() const { return m_syntaxFailure; }

    bool null() override { return Scalar(Json(nullptr)); }
    bool boolean(bool value) override { return Scalar(Json(value)); }
    bool number_integer(number_integer_t value) override { return Scalar(Json(value)); }
    bool number_unsigned(number_unsigned_t value) override { return Scalar(Json(value)); }
    bool number_float(number_float_t value, const string_t&) override { return Scalar(Json(value)); }
    bool string(string_t& value) override { return Scalar(Json(std::move(value))); }
    bool binary(binary_t& value) override { return Scalar(Json(std::move(value))); }
    bool start_object(std::size_t) override { return Open(true); }
    bool start_array(std::size_t) override { return Open(false); }
    bool end_object() override { return Close(); }
    bool end_array() override { return Close(); }

    bool key(string_t& name) override {
        Container& object = m_open.back();
        if (!object.names.Insert(name)) {
            std::vector<PathStep> steps = PathOfOpenContainers();
            steps.push_back({&name, 0});
            m_syntaxFailure = "snapshot " + m_fileName + ": " + RenderPath(steps) + ": duplicate field name";
            return false;
        }
        object.pendingKey = std::move(name);
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        m_syntaxFailure = "snapshot " + m_fileName + ": " + m_reader.Describe(m_start + position) +
                          ": invalid JSON: " + ParserExplanation(error.what());
        return false;
    }

private:
    struct Container {
        bool isObject;
        // How this container was reached from its parent: by `key`, or by `index` when
        // `byKey` is false.
        bool byKey;
        std::string key;
        size_t index;
        size_t count = 0;
        std::string pendingKey;
        NameSet names;
    };

    // What the value now open at the top level is.
    enum class Section { kNone, kFormat, kBuilt, kList };

    std::vector<PathStep> PathOfOpenContainers() const {
        std::vector<PathStep> steps;
        for (size_t level = 1; level < m_open.size(); ++level)
            steps.push_back(m_open[level].byKey ? PathStep{&m_open[level].key, 0}
                                                : PathStep{nullptr, m_open[level].index});
        return steps;
    }

    // Where the next value goes in its parent: the key it is reached by, or its index.
    void NextPlace(bool& byKey, std::string& key, size_t& index) {
        byKey = false;
        index = 0;
        if (m_open.empty())
            return;
        Container& parent = m_open.back();
        if (parent.isObject) {
            byKey = true;
            key = parent.pendingKey;
        } else {
            index = parent.count++;
        }
    }

    // Appends `value` to the innermost container being built and answers where it went.
    Json* Place(Json&& value) {
        Json& parent = *m_build.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return &parent.back();
        }
        // The key is known to be new, so append without the map's own linear look-up.
        Json::object_t& object = parent.get_ref<Json::object_t&>();
        object.emplace_back(std::move(m_open.back().pendingKey), std::move(value));
        return &object.back().second;
    }

    void Record(const ErrorMessage& failure) {
        if (!m_failure)
            m_failure = failure;
        m_section = Section::kNone;
        m_build.clear();
    }

    // A top-level value starts: the format, a section, or a name this layout does not have.
    void StartSection(const std::string& key, const Json& kindSample) {
        m_section = Section::kNone;
        if (key == "format") {
            m_section = Section::kFormat;
            return;
        }
        for (const snapshot_fields::SectionEntry& entry : snapshot_fields::kSections)
            if (key == entry.name) {
                m_sectionEntry = &entry;
                const bool isList =
                    !std::holds_alternative<snapshot_fields::SourceHeader>(entry.section) &&
                    !std::holds_alternative<
                        std::map<WyString, MIColumnPickListFieldVector> SourceMetadata::*>(entry.section);
                if (!isList) {
                    m_section = Section::kBuilt;
                } else if (kindSample.is_array()) {
                    m_section = Section::kList;
                } else {
                    const Path top{nullptr, {nullptr, 0}};
                    try {
                        m_walker.RequireKind(kindSample, top.Field(key), false, "an array");
                    } catch (const ErrorMessage& failure) {
                        Record(failure);
                    }
                }
                return;
            }
        const Path top{nullptr, {nullptr, 0}};
        Record(Failure("snapshot " + m_fileName + ": " + top.Field(key).Render() + ": unknown field name"));
    }

    // A top-level value that was built whole is complete.
    void EndSection(const std::string& key, const Json& value) {
        if (m_section == Section::kFormat) {
            m_format = value;
            return;
        }
        const Path top{nullptr, {nullptr, 0}};
        try {
            if (std::holds_alternative<snapshot_fields::SourceHeader>(m_sectionEntry->section))
                m_walker.ReadFields(value, top.Field(key), m_metadata);
            else
                m_walker.ReadPickLists(value, top.Field(key), m_metadata.pickLists);
        } catch (const ErrorMessage& failure) {
            Record(failure);
        }
    }

    // An element of a record list is complete.
    void EndElement(const Json& value, size_t index, uint64_t begin) {
        const Path top{nullptr, {nullptr, 0}};
        const std::string& key = m_open.front().pendingKey;
        const Path list = top.Field(key);
        const Path where = list.Element(index);
        try {
            std::visit(
                [&](auto section) {
                    using Member = decltype(section);
                    if constexpr (!std::is_same_v<Member, snapshot_fields::SourceHeader> &&
                                  !std::is_same_v<Member, std::map<WyString, MIColumnPickListFieldVector>
                                                              SourceMetadata::*>) {
                        typename std::remove_reference_t<decltype(m_metadata.*section)>::value_type record;
                        m_walker.ReadFields(value, where, record);
                        m_sink.Add(std::move(record), begin);
                    }
                },
                m_sectionEntry->section);
        } catch (const ErrorMessage& failure) {
            Record(failure);
        }
    }

    bool Scalar(Json&& value) {
        bool byKey;
        std::string key;
        size_t index;
        NextPlace(byKey, key, index);
        if (!m_build.empty()) {
            Place(std::move(value));
            return true;
        }
        const size_t depth = m_open.size();
        // The format is kept even after a failure: a wrong format is the one reported.
        if ((m_failure || m_rootFailure) && !(depth == 1 && key == "format"))
            return true;
        if (depth == 0) {
            RootIsNotAnObject(value);
        } else if (depth == 1) {
            StartSection(key, value);
            if (m_section == Section::kFormat || m_section == Section::kBuilt)
                EndSection(key, value);
        } else if (depth == 2 && m_section == Section::kList) {
            EndElement(value, index, m_reader.Offset());
        }
        return true;
    }

    bool Open(bool isObject) {
        const uint64_t begin = m_reader.Offset() - 1;
        if (m_open.size() >= kMaxDepth) {
            m_syntaxFailure = "snapshot " + m_fileName + ": " + m_reader.Describe(begin + 1) +
                              ": invalid JSON: nested deeper than " + std::to_string(kMaxDepth) + " levels";
            return false;
        }
        Container entry;
        entry.isObject = isObject;
        NextPlace(entry.byKey, entry.key, entry.index);
        const size_t depth = m_open.size();
        Json empty = isObject ? Json::object() : Json::array();
        if (!m_build.empty()) {
            Json* child = Place(std::move(empty));
            m_build.push_back(child);
        } else if ((!m_failure && !m_rootFailure) || (depth == 1 && entry.key == "format")) {
            if (depth == 0 && !isObject) {
                RootIsNotAnObject(empty);
            } else if (depth == 1) {
                StartSection(entry.key, empty);
                if (m_section == Section::kFormat || m_section == Section::kBuilt) {
                    m_value = std::move(empty);
                    m_build.push_back(&m_value);
                }
            } else if (depth == 2 && m_section == Section::kList) {
                m_value = std::move(empty);
                m_build.push_back(&m_value);
                m_elementBegin = begin;
            }
        }
        m_open.push_back(std::move(entry));
        return true;
    }

    bool Close() {
        const Container closed = std::move(m_open.back());
        m_open.pop_back();
        if (m_build.empty()) {
            if (m_open.size() == 1)
                m_section = Section::kNone;
            return true;
        }
        m_build.pop_back();
        if (!m_build.empty())
            return true;
        const Json value = std::move(m_value);
        m_value = Json();
        if (m_open.size() == 1) {
            EndSection(closed.key, value);
            m_section = Section::kNone;
        } else if (m_open.size() == 2) {
            EndElement(value, closed.index, m_elementBegin);
        }
        return true;
    }

    void RootIsNotAnObject(const Json& value) {
        const Path top{nullptr, {nullptr, 0}};
        try {
            m_walker.RequireKind(value, top, false, "an object");
        } catch (const ErrorMessage& failure) {
            m_rootFailure = failure;
        }
    }

    ByteReader& m_reader;
    const uint64_t m_start;
    const std::string& m_fileName;
    SourceMetadata& m_metadata;
    RecordSink& m_sink;
    Walker m_walker;

    std::vector<Container> m_open;
    std::vector<Json*> m_build;
    Json m_value;
    uint64_t m_elementBegin = 0;
    Section m_section = Section::kNone;
    const snapshot_fields::SectionEntry* m_sectionEntry = nullptr;

    std::optional<Json> m_format;
    std::optional<ErrorMessage> m_rootFailure, m_failure;
    std::string m_syntaxFailure;
};

int HexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// The code unit of four hex digits, or -1.
int32_t HexUnit(const char* digits) {
    int32_t unit = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = HexValue(digits[i]);
        if (digit < 0)
            return -1;
        unit = unit * 16 + digit;
    }
    return unit;
}

} // namespace

ByteReader::ByteReader(std::string_view text, uint64_t start)
    : m_data(text.data()), m_dataBegin(0), m_dataEnd(text.size()), m_pos(start), m_size(text.size()),
      m_lineStart(start), m_previousLineStart(start) {}

ByteReader::ByteReader(int fd, uint64_t size, uint64_t start, size_t window)
    : m_pos(start), m_fd(fd), m_size(size), m_windowSize(window), m_lineStart(start),
      m_previousLineStart(start) {}

bool ByteReader::Fill(size_t count) {
    if (m_pos >= m_dataBegin && m_pos + count <= m_dataEnd)
        return true;
    if (m_fd < 0 || m_readError != 0 || m_pos >= m_size)
        return false;
    const size_t want =
        static_cast<size_t>(std::min<uint64_t>(std::max(m_windowSize, count), m_size - m_pos));
    m_window.resize(want);
    size_t got = 0;
    while (got < want) {
        const ssize_t n = ::pread(m_fd, m_window.data() + got, want - got, static_cast<off_t>(m_pos + got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            m_readError = errno;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    m_data = m_window.data();
    m_dataBegin = m_pos;
    m_dataEnd = m_pos + got;
    if (got < want && m_readError == 0)
        m_size = m_dataEnd;
    return m_pos + count <= m_dataEnd;
}

void ByteReader::Seek(uint64_t offset) {
    m_pos = offset;
    m_lexical = Lexical::kOutside;
    m_overrideLeft = 0;
    m_lowSurrogatePaired = false;
}

void ByteReader::SkipSeparator() {
    while (!AtEnd()) {
        const char c = Peek();
        if (c != ' ' && c != '\n' && c != '\r' && c != '\t' && c != ',')
            return;
        Advance();
    }
}

void ByteReader::CheckSurrogate() {
    // The escape's digits, and after them room for a second escape "\uXXXX".
    Fill(10);
    const uint64_t available = m_dataEnd - m_pos;
    if (available < 4)
        return;
    const char* digits = m_data + (m_pos - m_dataBegin);
    const int32_t unit = HexUnit(digits);
    bool lone = false;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
        const int32_t next =
            available >= 10 && digits[4] == '\\' && digits[5] == 'u' ? HexUnit(digits + 6) : -1;
        m_lowSurrogatePaired = next >= 0xDC00 && next <= 0xDFFF;
        lone = !m_lowSurrogatePaired;
    } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
        lone = !m_lowSurrogatePaired;
        m_lowSurrogatePaired = false;
    } else {
        m_lowSurrogatePaired = false;
    }
    if (lone)
        m_overrideLeft = 4;
}

std::string ByteReader::Describe(uint64_t offset) const {
    const bool onThisLine = offset >= m_lineStart;
    const uint64_t line = onThisLine ? m_line : m_line - 1;
    const uint64_t lineStart = onThisLine ? m_lineStart : m_previousLineStart;
    return "line " + std::to_string(line) + ", column " + std::to_string(offset - lineStart);
}

void ScanDocument(ByteReader& reader, const std::string& fileName, SourceMetadata& metadata,
                  RecordSink& sink) {
    const uint64_t start = reader.Offset();
    DocumentScanner scanner(reader, start, fileName, metadata, sink);
    const bool parsed = Json::sax_parse(ReaderIterator(&reader), ReaderIterator(nullptr), &scanner,
                                        Json::input_format_t::json, true, false);
    if (reader.ReadError() != 0)
        throw Failure("cannot read snapshot file " + fileName + ": " + std::strerror(reader.ReadError()));
    if (!parsed)
        throw Failure(scanner.SyntaxFailure());
    scanner.Finish();
}

template <class Record> void ReadRecord(ByteReader& reader, const std::string& fileName, Record& record) {
    reader.SkipSeparator();
    const uint64_t offset = reader.Offset();
    Json value;
    nlohmann::detail::json_sax_dom_parser<Json> builder(value, false);
    const bool parsed = Json::sax_parse(ReaderIterator(&reader), ReaderIterator(nullptr), &builder,
                                        Json::input_format_t::json, false, false);
    record = Record();
    try {
        if (!parsed || reader.ReadError() != 0)
            throw Failure("");
        const Path top{nullptr, {nullptr, 0}};
        Walker(fileName).ReadFields(value, top, record);
    } catch (const ErrorMessage&) {
        throw Failure("snapshot " + fileName + ": the record at byte " + std::to_string(offset) +
                      " is not the one read when the file was opened (" +
                      (reader.ReadError() != 0 ? std::strerror(reader.ReadError()) : "the file changed") +
                      "); open it again");
    }
}

template void ReadRecord(ByteReader&, const std::string&, MITable&);
template void ReadRecord(ByteReader&, const std::string&, MIColumn&);
template void ReadRecord(ByteReader&, const std::string&, MIPrimaryKey&);
template void ReadRecord(ByteReader&, const std::string&, MIForeignKey&);

} // namespace snapshot_scan
