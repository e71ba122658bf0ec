// Reading snapshot files. The JSON text is first parsed into a tree by a SAX builder that also
// rejects repeated field names (which the library's own DOM parser would silently merge); the tree
// is then walked field by field against the record layouts, failing on anything not expected.
#include "import/snapshot/SnapshotImport.h"

#include "import/snapshot/SnapshotFields.h"

#include "platform/BaseStringUtil.h"
#include "platform/SystemUtility.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <unordered_set>
#include <variant>

namespace {

using Json = nlohmann::ordered_json;

using snapshot_fields::kFormatName;

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

[[noreturn]] void Fail(const std::string& fileName, const std::string& where, const std::string& what) {
    const std::string message = "snapshot " + fileName + ": " + where + ": " + what;
    throw ErrorMessage(BaseStringUtil::StringFrom(message.c_str(), SystemUtility::GetMultiByteCodePage()));
}

// "line 3, column 7" for the parser's count of bytes read: the column is that of the last byte
// read (the one that showed the error), one past the end for an unexpected end of input.
std::string DescribePosition(std::string_view text, size_t bytesRead) {
    size_t line = 1, lineStart = 0;
    for (size_t pos = 0; pos < std::min(bytesRead, text.size()); ++pos)
        if (text[pos] == '\n') {
            ++line;
            lineStart = pos + 1;
        }
    return "line " + std::to_string(line) + ", column " + std::to_string(bytesRead - lineStart);
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

// Builds the tree like the library's DOM parser, but refuses a field name that its object already
// holds and remembers where the first failure happened.
class StrictTreeBuilder : public nlohmann::json_sax<Json> {
public:
    StrictTreeBuilder(Json& root, std::string_view text, const std::string& fileName)
        : m_root(root), m_text(text), m_fileName(fileName) {}

    const std::string& Failure() const { return m_failure; }

    bool null() override { return Add(Json(nullptr)); }
    bool boolean(bool value) override { return Add(Json(value)); }
    bool number_integer(number_integer_t value) override { return Add(Json(value)); }
    bool number_unsigned(number_unsigned_t value) override { return Add(Json(value)); }
    bool number_float(number_float_t value, const string_t&) override { return Add(Json(value)); }
    bool string(string_t& value) override { return Add(Json(std::move(value))); }
    bool binary(binary_t& value) override { return Add(Json(std::move(value))); }

    bool start_object(std::size_t) override { return Open(Json::object()); }
    bool start_array(std::size_t) override { return Open(Json::array()); }
    bool end_object() override { return Close(); }
    bool end_array() override { return Close(); }

    bool key(string_t& name) override {
        Container& object = m_open.back();
        if (IsDuplicate(object, name)) {
            std::vector<PathStep> steps = PathOfOpenContainers();
            steps.push_back({&name, 0});
            m_failure = "snapshot " + m_fileName + ": " + RenderPath(steps) + ": duplicate field name";
            return false;
        }
        object.pendingKey = std::move(name);
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        m_failure = "snapshot " + m_fileName + ": " + DescribePosition(m_text, position) +
                    ": invalid JSON: " + ParserExplanation(error.what());
        return false;
    }

private:
    struct Container {
        Json* value;
        // How this container was reached from its parent: by this key (held by the parent), or
        // by `index` when null.
        const std::string* reachedBy;
        size_t index;
        std::string pendingKey;
        // Built only for objects too large for a linear look-up to stay cheap.
        std::unique_ptr<std::unordered_set<std::string>> keys;
    };

    static bool IsDuplicate(Container& object, const std::string& name) {
        constexpr size_t kLinearLimit = 16;
        if (!object.keys) {
            if (object.value->size() < kLinearLimit)
                return object.value->contains(name);
            object.keys = std::make_unique<std::unordered_set<std::string>>();
            for (const auto& item : object.value->items())
                object.keys->insert(item.key());
        }
        return !object.keys->insert(name).second;
    }

    std::vector<PathStep> PathOfOpenContainers() const {
        std::vector<PathStep> steps;
        for (size_t level = 1; level < m_open.size(); ++level)
            steps.push_back(PathStep{m_open[level].reachedBy, m_open[level].index});
        return steps;
    }

    // Places `value` in the innermost open container (or as the root) and returns where it went.
    // A container's elements stay in place while a child of it is open, so the pointers that
    // m_open holds stay valid.
    Json* Place(Json&& value, const std::string*& reachedBy, size_t& index) {
        reachedBy = nullptr;
        index = 0;
        if (m_open.empty()) {
            m_root = std::move(value);
            return &m_root;
        }
        Container& parent = m_open.back();
        if (parent.value->is_array()) {
            index = parent.value->size();
            parent.value->push_back(std::move(value));
            return &parent.value->back();
        }
        // The key is known to be new, so append without the map's own linear look-up.
        Json::object_t& object = parent.value->get_ref<Json::object_t&>();
        object.emplace_back(std::move(parent.pendingKey), std::move(value));
        reachedBy = &object.back().first;
        return &object.back().second;
    }

    bool Add(Json&& value) {
        const std::string* unusedKey;
        size_t unusedIndex;
        Place(std::move(value), unusedKey, unusedIndex);
        return true;
    }

    bool Open(Json&& container) {
        Container entry;
        entry.value = Place(std::move(container), entry.reachedBy, entry.index);
        m_open.push_back(std::move(entry));
        return true;
    }

    bool Close() {
        m_open.pop_back();
        return true;
    }

    Json& m_root;
    std::string_view m_text;
    const std::string& m_fileName;
    std::vector<Container> m_open;
    std::string m_failure;
};

// A place in the tree during the walk: parent link plus the step from the parent.
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

// Walks the parsed tree into the records, checking every field against its record's layout.
class SnapshotWalker {
public:
    explicit SnapshotWalker(const std::string& fileName) : m_fileName(fileName) {}

    SourceMetadata Walk(const Json& root) {
        const Path top{nullptr, {nullptr, 0}};
        RequireKind(root, top, root.is_object(), "an object");
        const auto format = root.find("format");
        if (format == root.end())
            Fail(m_fileName, "format", std::string("missing; expected \"") + kFormatName + "\"");
        if (!format->is_string() || format->get_ref<const std::string&>() != kFormatName)
            Fail(m_fileName, "format",
                 std::string("expected \"") + kFormatName + "\", found " +
                     format->dump(-1, ' ', false, Json::error_handler_t::replace));

        SourceMetadata metadata;
        Fields(root, top, [&](const std::string& key, const Json& value, const Path& path) {
            if (key == "format")
                return true;
            for (const snapshot_fields::SectionEntry& entry : snapshot_fields::kSections)
                if (key == entry.name) {
                    std::visit([&](auto section) { ReadSection(value, path, metadata, section); },
                               entry.section);
                    return true;
                }
            return false;
        });
        return metadata;
    }

private:
    void RequireKind(const Json& value, const Path& path, bool ok, const char* expected) const {
        if (!ok)
            Fail(m_fileName, path.Render(), std::string("expected ") + expected + ", found " + KindOf(value));
    }

    // Calls `onField(key, value, path)` for each field in file order; it answers false for a name
    // the record does not have.
    template <class OnField> void Fields(const Json& object, const Path& path, OnField onField) const {
        RequireKind(object, path, object.is_object(), "an object");
        for (const auto& item : object.items()) {
            const Path fieldPath = path.Field(item.key());
            if (!onField(item.key(), item.value(), fieldPath))
                Fail(m_fileName, fieldPath.Render(), "unknown field name");
        }
    }

    // Fills the fields of `record` that the object names; the others keep their fresh values.
    template <class Record> void ReadFields(const Json& object, const Path& path, Record& record) const {
        Fields(object, path, [&](const std::string& key, const Json& value, const Path& fieldPath) {
            for (const snapshot_fields::Field<Record>& field : snapshot_fields::Layout<Record>::kFields)
                if (key == field.name) {
                    std::visit([&](auto member) { Read(value, fieldPath, record.*member); }, field.member);
                    return true;
                }
            return false;
        });
    }

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

    void ReadSection(const Json& value, const Path& path, SourceMetadata& metadata,
                     snapshot_fields::SourceHeader) const {
        ReadFields(value, path, metadata);
    }

    template <class List>
    void ReadSection(const Json& value, const Path& path, SourceMetadata& metadata,
                     List SourceMetadata::*member) const {
        Read(value, path, metadata.*member);
    }

    void ReadSection(const Json& object, const Path& path, SourceMetadata& metadata,
                     std::map<WyString, MIColumnPickListFieldVector> SourceMetadata::*member) const {
        RequireKind(object, path, object.is_object(), "an object");
        for (const auto& item : object.items()) {
            WyString name;
            BaseStringUtil::AppendFromUtf8(item.key().data(), item.key().size(), name);
            Read(item.value(), path.Field(item.key()), (metadata.*member)[name]);
        }
    }

    const std::string& m_fileName;
};

} // namespace

SourceMetadata ParseSnapshot(const std::string& text, const std::string& fileName) {
    // The byte order mark is dropped here rather than by the parser so that columns on the first
    // line count from the first real character.
    constexpr std::string_view kBom = "\xEF\xBB\xBF";
    const std::string_view body =
        std::string_view(text).substr(text.compare(0, kBom.size(), kBom) == 0 ? kBom.size() : 0);

    Json root;
    StrictTreeBuilder builder(root, body, fileName);
    if (!Json::sax_parse(body.begin(), body.end(), &builder, Json::input_format_t::json, true, false))
        throw ErrorMessage(
            BaseStringUtil::StringFrom(builder.Failure().c_str(), SystemUtility::GetMultiByteCodePage()));
    return SnapshotWalker(fileName).Walk(root);
}

std::unique_ptr<MemoryImport> ReadSnapshotFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    auto fail = [&path](const char* doing) {
        const std::string message =
            std::string("cannot ") + doing + " snapshot file " + path + ": " + std::strerror(errno);
        throw ErrorMessage(
            BaseStringUtil::StringFrom(message.c_str(), SystemUtility::GetMultiByteCodePage()));
    };
    if (file == nullptr)
        fail("open");
    std::string text;
    char buffer[65536];
    size_t count;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        text.append(buffer, count);
    const bool readFailed = std::ferror(file) != 0;
    const int readErrno = errno;
    std::fclose(file);
    if (readFailed) {
        errno = readErrno;
        fail("read");
    }
    return std::make_unique<MemoryImport>(std::make_shared<const SourceMetadata>(ParseSnapshot(text, path)));
}
