// Each name is looked up with the same search the generator makes, so a name matches here
// exactly when the request would find it (names are search patterns, letter case counts).
#include "Existence.h"

#include "EditDistance.h"

#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"
#include "platform/repository/SMPTypeIDDatabase.h"

#include <algorithm>
#include <set>

namespace udmlgen {
namespace {

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

WyString Quoted(const WyString& name) {
    return L"\"" + name + L"\"";
}

// "kind "name" not found in WHERE; closest: "a", "b", "c"".
[[noreturn]] void NotFound(const wchar_t* kind, const WyString& name, const WyString& where,
                           const std::set<WyString>& existing) {
    WyString text = WyString(kind) + L" " + Quoted(name) + L" not found" + where;
    std::vector<std::pair<size_t, WyString>> ranked;
    for (const WyString& candidate : existing)
        if (!candidate.empty())
            ranked.emplace_back(EditDistance(name, candidate,
                                             [](wchar_t x, wchar_t y) {
                                                 return BaseStringUtil::ToLower(x) ==
                                                        BaseStringUtil::ToLower(y);
                                             }),
                                candidate);
    std::sort(ranked.begin(), ranked.end());
    if (ranked.empty())
        text += L"; there is none";
    for (size_t i = 0; i < ranked.size() && i < 3; ++i)
        text += (i == 0 ? L"; closest: " : L", ") + Quoted(ranked[i].second);
    throw ErrorMessage(text);
}

template <typename Record, typename Prepare, typename NameOf>
std::set<WyString> Names(MIMetaDataImport& source, Prepare prepare, NameOf nameOf) {
    prepare();
    std::set<WyString> names;
    Record record;
    while (source.Get(record))
        names.insert(nameOf(record));
    return names;
}

template <typename Record, typename Prepare> bool AnyRow(MIMetaDataImport& source, Prepare prepare) {
    prepare();
    Record record;
    return source.Get(record);
}

WyString In(const wchar_t* kind, const WyString& name) {
    return name.empty() ? WyString() : L" in " + WyString(kind) + L" " + Quoted(name);
}

} // namespace

void CheckRequestedObjectsExist(MIMetaDataImport& source, const Options& options) {
    WyString catalog = Wide(options.catalog);
    WyString schema = Wide(options.schema);
    const bool tableRequest = options.requestType == kTIDATable || options.requestType == kTIDAColumn ||
                              options.requestType == kTIDATableKey || options.requestType == kTIDAForeignKey;
    // A table request reads the base table's metadata when it names one; a walk uses the table.
    const bool viaBase = tableRequest && !options.baseTable.empty();
    WyString table = Wide(viaBase ? options.baseTable : options.table);
    WyString column = Wide(options.column);
    WyString all;

    // A source may list a catalog or schema only through its tables, as the walks find them.
    auto hasTables = [&](WyString& inCatalog, WyString& inSchema) {
        return AnyRow<MITable>(source, [&] { source.PrepareForTable(inCatalog, inSchema, all, 0); });
    };
    auto tableNames = [&](WyString& inCatalog, WyString& inSchema, bool schemas) {
        return Names<MITable>(
            source, [&] { source.PrepareForTable(inCatalog, inSchema, all, 0); },
            [schemas](const MITable& t) { return schemas ? t.schema_ : t.catalog_; });
    };
    if (!catalog.empty() && !AnyRow<MICatalog>(source, [&] { source.PrepareForCatalog(catalog); }) &&
        !hasTables(catalog, all)) {
        std::set<WyString> names = Names<MICatalog>(
            source, [&] { source.PrepareForCatalog(all); }, [](const MICatalog& c) { return c.catalog_; });
        const std::set<WyString> more = tableNames(all, all, false);
        names.insert(more.begin(), more.end());
        NotFound(L"catalog", catalog, WyString(), names);
    }
    if (!schema.empty() && !AnyRow<MISchema>(source, [&] { source.PrepareForSchema(catalog, schema); }) &&
        !hasTables(catalog, schema)) {
        std::set<WyString> names = Names<MISchema>(
            source, [&] { source.PrepareForSchema(catalog, all); },
            [](const MISchema& s) { return s.schema_; });
        const std::set<WyString> more = tableNames(catalog, all, true);
        names.insert(more.begin(), more.end());
        NotFound(L"schema", schema, In(L"catalog", catalog), names);
    }
    const WyString tableWhere = schema.empty() ? In(L"catalog", catalog) : In(L"schema", schema);
    if (!table.empty() &&
        !AnyRow<MITable>(source, [&] { source.PrepareForTable(catalog, schema, table, 0); })) {
        NotFound(viaBase ? L"base table" : L"table", table, tableWhere,
                 Names<MITable>(
                     source, [&] { source.PrepareForTable(catalog, schema, all, 0); },
                     [](const MITable& t) { return t.table_; }));
    }
    if (options.requestType == kTIDAColumn &&
        !AnyRow<MIColumn>(source, [&] { source.PrepareForColumn(catalog, schema, table, column); })) {
        NotFound(L"column", column, In(L"table", table),
                 Names<MIColumn>(
                     source, [&] { source.PrepareForColumn(catalog, schema, table, all); },
                     [](const MIColumn& c) { return c.columnName_; }));
    }
    if (options.requestType == kTIDAForeignKey && !options.foreignKey.empty()) {
        WyString none;
        const std::set<WyString> keys = Names<MIForeignKey>(
            source, [&] { source.PrepareForForeignKey(none, none, none, catalog, schema, table); },
            [](const MIForeignKey& k) { return k.foreignKeyName_; });
        const WyString key = Wide(options.foreignKey);
        if (keys.count(key) == 0)
            NotFound(L"foreign key", key, In(L"table", table), keys);
    }
}

} // namespace udmlgen
