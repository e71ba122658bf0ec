// The second connection that reads a PostgreSQL schema's keys from a thread of its own while the
// first connection reads the schema's columns.
#pragma once

#include "import/MIRecords.h"
#include "import/odbc/OdbcCalls.h"
#include "import/odbc/SchemaRows.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace odbc {

// The keys of the schema whose columns are being read, read meanwhile on a second connection of
// its own: the server works on both at once, and the keys are in memory by the time the writer
// asks for them. Whatever goes wrong here is dropped; the main connection then reads the keys
// itself and reports what is really wrong.
class KeyPrefetch {
public:
    KeyPrefetch() = default;
    KeyPrefetch(const KeyPrefetch&) = delete;
    KeyPrefetch& operator=(const KeyPrefetch&) = delete;
    ~KeyPrefetch() { Close(); }

    // Remembers how to open the second connection; `source` empty: never prefetch.
    void Configure(const DataSource& source);
    // Starts reading the keys of (`catalog`, `schema`), dropping any that were not taken.
    void Start(const WyString& catalog, const WyString& schema);
    // The keys of (`catalog`, `schema`) when they were read here, waiting for them if need be;
    // false otherwise.
    bool TakePrimaryKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIPrimaryKey>& rows);
    bool TakeForeignKeys(const WyString& catalog, const WyString& schema, SchemaRows<MIForeignKey>& rows);
    // Waits for the reading, ends the second connection and forgets the credentials.
    void Close() noexcept;

private:
    void Finish() noexcept;
    template <typename Done> bool Wait(const WyString& catalog, const WyString& schema, Done done);
    void Read() noexcept;
    void Signal(bool& done);

    DataSource m_source;
    bool m_unavailable = true; // no second connection: not configured, or it could not be opened
    Handle m_environment;
    Handle m_connection;
    bool m_connected = false;

    std::thread m_worker;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_primaryKeysDone = false;
    bool m_foreignKeysDone = false;

    // Written by the worker until it signals the kind done; read by the caller after that.
    WyString m_catalog;
    WyString m_schema;
    SchemaRows<MIPrimaryKey> m_primaryKeys;
    bool m_primaryKeysRead = false;
    SchemaRows<MIForeignKey> m_foreignKeys;
    bool m_foreignKeysRead = false;
};

} // namespace odbc
