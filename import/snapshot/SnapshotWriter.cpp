// Capturing a live import source as a snapshot, written as it is read. Each list goes out as the
// source delivers it; the walk asks each table for its columns, primary key and foreign keys in
// turn, so the keys wait in two temporary files until the columns are all written. What the
// writer keeps in memory is the names of the listed tables and the pick lists.
#include "import/snapshot/SnapshotWriter.h"

#include "import/SearchPattern.h"
#include "import/memory/MemoryImport.h"
#include "import/snapshot/SnapshotFields.h"
#include "import/snapshot/SnapshotImport.h"
#include "platform/BaseStringUtil.h"
#include "platform/SystemUtility.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <set>
#include <streambuf>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <variant>

namespace {

std::string Utf8(const WyString& text) {
    std::string out;
    BaseStringUtil::AppendUtf8(text, out);
    return out;
}

// A JSON string, escaped as the JSON library's own writer does: the short escapes, \u00xx for
// other control characters, everything else (UTF-8 included) as it is.
void AppendQuoted(std::string& out, std::string_view utf8) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += kHex[(c >> 4) & 0xF];
                out += kHex[c & 0xF];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void AppendIndent(std::string& out, size_t indent) {
    out.append(indent, ' ');
}

template <class Record> void AppendRecord(std::string& out, const Record& record, size_t indent);

// A field's value as the reader expects it; see the reader for the kinds.
void AppendValue(std::string& out, const WyString& text, size_t) {
    AppendQuoted(out, Utf8(text));
}

template <class Scalar, std::enable_if_t<std::is_arithmetic_v<Scalar>, int> = 0>
void AppendValue(std::string& out, Scalar value, size_t) {
    if constexpr (std::is_same_v<Scalar, bool>)
        out += value ? "true" : "false";
    else
        out += std::to_string(value);
}

void AppendValue(std::string& out, WyDataType type, size_t) {
    if (const char* name = WyDataTypeName(type))
        AppendQuoted(out, name);
    else
        out += std::to_string(static_cast<int32_t>(type));
}

// An array with one element a line, or "[]".
template <class Element>
void AppendValue(std::string& out, const std::vector<Element>& elements, size_t indent) {
    if (elements.empty()) {
        out += "[]";
        return;
    }
    out += "[\n";
    for (size_t index = 0; index < elements.size(); ++index) {
        if (index > 0)
            out += ",\n";
        AppendIndent(out, indent + 2);
        if constexpr (std::is_same_v<Element, WyString>)
            AppendValue(out, elements[index], indent + 2);
        else
            AppendRecord(out, elements[index], indent + 2);
    }
    out += '\n';
    AppendIndent(out, indent);
    out += ']';
}

// Every field of the record, in its layout's order.
template <class Record> void AppendRecord(std::string& out, const Record& record, size_t indent) {
    out += "{\n";
    bool first = true;
    for (const snapshot_fields::Field<Record>& field : snapshot_fields::Layout<Record>::kFields) {
        if (!first)
            out += ",\n";
        first = false;
        AppendIndent(out, indent + 2);
        AppendQuoted(out, field.name);
        out += ": ";
        std::visit([&](auto member) { AppendValue(out, record.*member, indent + 2); }, field.member);
    }
    out += '\n';
    AppendIndent(out, indent);
    out += '}';
}

// Writes one top-level list element by element.
class ListWriter {
public:
    explicit ListWriter(std::ostream& out) : m_out(out) { m_out << '['; }

    template <class Record> void Add(const Record& record) {
        m_text.assign(m_count++ == 0 ? "\n    " : ",\n    ");
        AppendRecord(m_text, record, 4);
        m_out << m_text;
    }

    void End() { m_out << (m_count == 0 ? "]" : "\n  ]"); }

private:
    std::ostream& m_out;
    size_t m_count = 0;
    std::string m_text;
};

// A temporary file that holds one list's elements while another list is written.
class Spool {
public:
    Spool() : m_file(std::tmpfile()) {
        if (m_file == nullptr)
            Fail("create");
    }
    ~Spool() { std::fclose(m_file); }
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    template <class Record> void Add(const Record& record) {
        m_text.assign(m_count++ == 0 ? "\n    " : ",\n    ");
        AppendRecord(m_text, record, 4);
        if (std::fwrite(m_text.data(), 1, m_text.size(), m_file) != m_text.size())
            Fail("write");
    }

    void CopyTo(std::ostream& out) {
        if (std::fflush(m_file) != 0 || std::fseek(m_file, 0, SEEK_SET) != 0)
            Fail("read");
        out << '[';
        char buffer[65536];
        size_t count;
        while ((count = std::fread(buffer, 1, sizeof buffer, m_file)) > 0)
            out.write(buffer, static_cast<std::streamsize>(count));
        if (std::ferror(m_file))
            Fail("read");
        out << (m_count == 0 ? "]" : "\n  ]");
    }

private:
    [[noreturn]] static void Fail(const char* doing) {
        const std::string message =
            std::string("cannot ") + doing + " the temporary file of the capture: " + std::strerror(errno);
        throw ErrorMessage(
            BaseStringUtil::StringFrom(message.c_str(), SystemUtility::GetMultiByteCodePage()));
    }

    std::FILE* m_file;
    size_t m_count = 0;
    std::string m_text;
};

// Drains the listing just prepared; each record starts fresh, so no field leaks between rows.
template <class Record, class Keep> void Drain(MIMetaDataImport& source, Keep keep) {
    for (;;) {
        Record record;
        if (!source.Get(record))
            return;
        keep(record);
    }
}

// A table's catalog, schema and name as one compact key: each name's length, then its code
// units, each as a base-128 number, so that every name, even one that is not valid Unicode, has
// its own key.
void AppendName(std::string& key, const WyString& name) {
    auto number = [&key](uint64_t value) {
        while (value >= 0x80) {
            key += static_cast<char>(0x80 | (value & 0x7F));
            value >>= 7;
        }
        key += static_cast<char>(value);
    };
    number(name.size());
    for (const wchar_t unit : name)
        number(static_cast<uint32_t>(unit));
}

std::string TableKey(const WyString& catalog, const WyString& schema, const WyString& table) {
    std::string key;
    AppendName(key, catalog);
    AppendName(key, schema);
    AppendName(key, table);
    return key;
}

struct TableName {
    WyString catalog, schema, table;
};

TableName NameOfKey(const std::string& key) {
    size_t pos = 0;
    auto number = [&]() {
        uint64_t value = 0;
        for (int shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(key[pos++]);
            value |= static_cast<uint64_t>(byte & 0x7F) << shift;
            if (byte < 0x80)
                return value;
        }
    };
    auto name = [&]() {
        WyString text(static_cast<size_t>(number()), L'\0');
        for (wchar_t& unit : text)
            unit = static_cast<wchar_t>(number());
        return text;
    };
    TableName result;
    result.catalog = name();
    result.schema = name();
    result.table = name();
    return result;
}

// Whether a record that the listing for `table` delivered, naming table `owner`, is `table`'s.
// Empty catalog and schema arguments select every name, and search patterns select look-alikes
// ("A_B" brings "AXB"); such records are left to their own table's turn when the listing has one.
// A record naming no listed table is kept: some drivers report a catalog or schema in one catalog
// function and not in another.
bool BelongsTo(const TableName& table, const std::string& tableKey, const WyString& catalog,
               const WyString& schema, const WyString& name, const std::unordered_set<std::string>& listed) {
    const std::string ownerKey = TableKey(catalog, schema, name);
    if (ownerKey == tableKey)
        return true;
    if (name != table.table || listed.count(ownerKey) != 0)
        return false;
    return (table.catalog.empty() || table.catalog == catalog) &&
           (table.schema.empty() || table.schema == schema);
}

// The pick list `column` names, or false when the source has none. GetPickList leaves the column
// alone when it knows no such list, so two probes tell "no list" from "an empty list".
bool CapturePickList(MIMetaDataImport& source, const MIColumn& column, MIColumnPickListFieldVector& list) {
    MIColumn probe = column;
    probe.pickListFieldName.clear();
    source.GetPickList(probe);
    if (!probe.pickListFieldName.empty()) {
        list = probe.pickListFieldName;
        return true;
    }
    MIColumn marked = column;
    marked.pickListFieldName.assign(1, MIColumnPickListField{L"?", L"?"});
    source.GetPickList(marked);
    list.clear();
    return marked.pickListFieldName.empty();
}

// The pick lists in the order the capture met them, keyed by their names as written (two names
// that are written alike keep the first place and the last list).
class PickLists {
public:
    void Set(const WyString& name, const MIColumnPickListFieldVector& list) {
        std::string key = Utf8(name);
        const auto found = m_positions.find(key);
        if (found != m_positions.end()) {
            m_lists[found->second].second = list;
            return;
        }
        m_positions.emplace(key, m_lists.size());
        m_lists.emplace_back(std::move(key), list);
    }

    void Write(std::ostream& out) const {
        if (m_lists.empty()) {
            out << "{}";
            return;
        }
        std::string text = "{";
        for (size_t index = 0; index < m_lists.size(); ++index) {
            text += index == 0 ? "\n    " : ",\n    ";
            AppendQuoted(text, m_lists[index].first);
            text += ": ";
            AppendValue(text, m_lists[index].second, 4);
        }
        text += "\n  }";
        out << text;
    }

private:
    std::vector<std::pair<std::string, MIColumnPickListFieldVector>> m_lists;
    std::unordered_map<std::string, size_t> m_positions;
};

// The capture, section by section in layout order.
class Capture {
public:
    Capture(MIMetaDataImport& source, int32_t callInterface, std::ostream& out)
        : m_source(source), m_callInterface(callInterface), m_out(out) {}

    void operator()(snapshot_fields::SourceHeader) {
        SUFeaturesTable features;
        TargetType targetType = kTargetDefault;
        m_source.GetFeatures(features, targetType);
        SourceMetadata header;
        header.callInterface = m_callInterface;
        header.targetType = static_cast<int32_t>(targetType);
        header.packagedApplication = m_source.GetIsTavrinMetadata();
        header.eai = m_source.GetTavrinEAI();
        std::string text;
        AppendRecord(text, header, 2);
        m_out << text;
    }

    void operator()(std::vector<MICatalog> SourceMetadata::*) {
        ListWriter list(m_out);
        m_source.PrepareForCatalog(m_all);
        Drain<MICatalog>(m_source, [&](const MICatalog& record) {
            list.Add(record);
            m_catalogNames.push_back(record.catalog_);
        });
        list.End();
    }

    // Schemas are listed catalog by catalog, as a walk asks for them. NOTE: psqlODBC lists schemas
    // with an empty catalog although its tables carry one (observed against PostgreSQL 15); the
    // live source lets such a schema through for any catalog, while a snapshot selects schemas by
    // their catalog, so the capture records the catalog that was asked for.
    void operator()(std::vector<MISchema> SourceMetadata::*) {
        ListWriter list(m_out);
        std::set<std::pair<WyString, WyString>> captured;
        if (m_catalogNames.empty())
            m_catalogNames.push_back(m_all);
        for (WyString& catalog : m_catalogNames) {
            // The catalog argument is a search pattern: a name such as "a\\b" or "a_b" must select
            // its own schemas, not those of "a\b" or "axb".
            WyString pattern = ExactSearchPattern(catalog);
            m_source.PrepareForSchema(pattern, m_all);
            Drain<MISchema>(m_source, [&](const MISchema& record) {
                MISchema schema = record;
                if (schema.catalog_.empty())
                    schema.catalog_ = catalog;
                if (captured.emplace(schema.catalog_, schema.schema_).second)
                    list.Add(schema);
            });
        }
        list.End();
    }

    void operator()(std::vector<MITable> SourceMetadata::*) {
        ListWriter list(m_out);
        m_source.PrepareForTable(m_all, m_all, m_all, 0);
        Drain<MITable>(m_source, [&](const MITable& record) {
            list.Add(record);
            // A table listed twice (say once per table type) still owns its columns only once.
            const auto inserted = m_listed.insert(TableKey(record.catalog_, record.schema_, record.table_));
            if (inserted.second)
                m_walk.push_back(&*inserted.first);
        });
        list.End();
    }

    // The walk over the tables: columns go out at once, keys to their spools.
    void operator()(MIColumnVector SourceMetadata::*) {
        ListWriter list(m_out);
        std::set<WyString> pickListsAsked;
        for (const std::string* key : m_walk) {
            if (!m_out)
                break;
            // The preparations take the names by reference and a source may rewrite them, so
            // each gets its own copy.
            const TableName name = NameOfKey(*key);
            TableName args{ExactSearchPattern(name.catalog), ExactSearchPattern(name.schema),
                           ExactSearchPattern(name.table)};
            m_source.PrepareForColumn(args.catalog, args.schema, args.table, m_all);
            Drain<MIColumn>(m_source, [&](const MIColumn& column) {
                if (!BelongsTo(name, *key, column.catalog_, column.schema_, column.table_, m_listed))
                    return;
                list.Add(column);
                if (column.picklistName.empty() || !pickListsAsked.insert(column.picklistName).second)
                    return;
                MIColumnPickListFieldVector pickList;
                if (CapturePickList(m_source, column, pickList))
                    m_pickLists.Set(column.picklistName, pickList);
            });
            args = name;
            m_source.PrepareForPrimaryKey(args.catalog, args.schema, args.table);
            Drain<MIPrimaryKey>(m_source, [&](const MIPrimaryKey& primaryKey) {
                if (BelongsTo(name, *key, primaryKey.catalog_, primaryKey.schema_, primaryKey.table_,
                              m_listed))
                    m_primaryKeys.Add(primaryKey);
            });
            args = name;
            m_source.PrepareForForeignKey(m_all, m_all, m_all, args.catalog, args.schema, args.table);
            Drain<MIForeignKey>(m_source, [&](const MIForeignKey& foreignKey) {
                if (BelongsTo(name, *key, foreignKey.fkCatalog_, foreignKey.fkSchema_, foreignKey.fkTable_,
                              m_listed))
                    m_foreignKeys.Add(foreignKey);
            });
        }
        list.End();

        // The interface reaches a pick list only through a column that names it. An in-memory
        // or snapshot source may hold lists no column names; they are kept too, so that reading
        // the capture gives back the source it was taken from.
        const std::map<WyString, MIColumnPickListFieldVector>* held = nullptr;
        if (const auto* memory = dynamic_cast<const MemoryImport*>(&m_source))
            held = &memory->Metadata().pickLists;
        else if (const auto* snapshot = dynamic_cast<const SnapshotImport*>(&m_source))
            held = &snapshot->PickLists();
        if (held != nullptr)
            for (const auto& [pickListName, pickList] : *held)
                if (pickListsAsked.insert(pickListName).second)
                    m_pickLists.Set(pickListName, pickList);
    }

    void operator()(MIPrimaryKeyVector SourceMetadata::*) { m_primaryKeys.CopyTo(m_out); }
    void operator()(MIForeignKeyVector SourceMetadata::*) { m_foreignKeys.CopyTo(m_out); }
    void operator()(std::map<WyString, MIColumnPickListFieldVector> SourceMetadata::*) {
        m_pickLists.Write(m_out);
    }

    void operator()(MIViewLinkVector SourceMetadata::*) {
        ListWriter list(m_out);
        m_source.PrepareForViewLink();
        Drain<MIViewLink>(m_source, [&](const MIViewLink& link) { list.Add(link); });
        list.End();
    }

private:
    MIMetaDataImport& m_source;
    const int32_t m_callInterface;
    std::ostream& m_out;
    WyString m_all;
    std::vector<WyString> m_catalogNames;
    std::unordered_set<std::string> m_listed;
    std::vector<const std::string*> m_walk;
    Spool m_primaryKeys, m_foreignKeys;
    PickLists m_pickLists;
};

} // namespace

void WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::ostream& out) {
    Capture capture(source, callInterface, out);
    out << "{\n  \"format\": \"" << snapshot_fields::kFormatName << '"';
    for (const snapshot_fields::SectionEntry& entry : snapshot_fields::kSections) {
        out << ",\n  \"" << entry.name << "\": ";
        std::visit(capture, entry.section);
    }
    out << "\n}\n";
}

namespace {

// An output stream buffer over a C file, which keeps the first write failure's errno.
class FileBuffer : public std::streambuf {
public:
    explicit FileBuffer(std::FILE* file) : m_file(file) { setp(m_buffer, m_buffer + sizeof m_buffer); }

    bool Failed() const { return m_failed; }
    int Error() const { return m_errno; }

protected:
    int_type overflow(int_type c) override {
        if (!Flush())
            return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    int sync() override { return Flush() ? 0 : -1; }

private:
    bool Flush() {
        const size_t count = static_cast<size_t>(pptr() - pbase());
        if (!m_failed && count > 0 && std::fwrite(pbase(), 1, count, m_file) != count) {
            m_failed = true;
            m_errno = errno;
        }
        setp(m_buffer, m_buffer + sizeof m_buffer);
        return !m_failed;
    }

    std::FILE* m_file;
    char m_buffer[65536];
    bool m_failed = false;
    int m_errno = 0;
};

} // namespace

bool WriteSnapshot(MIMetaDataImport& source, int32_t callInterface, std::FILE* file) {
    FileBuffer buffer(file);
    std::ostream out(&buffer);
    try {
        WriteSnapshot(source, callInterface, out);
    } catch (...) {
        out.flush();
        throw;
    }
    out.flush();
    errno = buffer.Error();
    return !buffer.Failed();
}
