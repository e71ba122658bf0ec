// The key prefetch: a worker thread on a second connection, joined before anything it wrote is read.
#include "import/odbc/KeyPrefetch.h"

#include "import/odbc/PostgresCatalog.h"

#include <algorithm>

namespace odbc {

void KeyPrefetch::Configure(const DataSource& source) {
    Close();
    m_source = source;
    m_unavailable = source.Empty();
}

void KeyPrefetch::Start(const WyString& catalog, const WyString& schema) {
    Finish();
    if (m_unavailable) {
        return;
    }
    m_catalog = catalog;
    m_schema = schema;
    m_primaryKeysRead = false;
    m_foreignKeysRead = false;
    m_primaryKeys.Reset(catalog, schema);
    m_foreignKeys.Reset(catalog, schema);
    m_worker = std::thread([this] { Read(); });
}

bool KeyPrefetch::TakePrimaryKeys(const WyString& catalog, const WyString& schema,
                                  SchemaRows<MIPrimaryKey>& rows) {
    if (!Wait(catalog, schema, [this] { return m_primaryKeysDone; }) || !m_primaryKeysRead) {
        return false;
    }
    m_primaryKeysRead = false;
    rows = std::move(m_primaryKeys);
    return true;
}

bool KeyPrefetch::TakeForeignKeys(const WyString& catalog, const WyString& schema,
                                  SchemaRows<MIForeignKey>& rows) {
    if (!Wait(catalog, schema, [this] { return m_foreignKeysDone; }) || !m_foreignKeysRead) {
        return false;
    }
    m_foreignKeysRead = false;
    rows = std::move(m_foreignKeys);
    return true;
}

void KeyPrefetch::Close() noexcept {
    Finish();
    if (m_connected) {
        Disconnect(m_connection.Get());
        m_connected = false;
    }
    m_connection.Reset();
    m_environment.Reset();
    m_source.Forget();
    m_unavailable = true;
    m_primaryKeys = SchemaRows<MIPrimaryKey>();
    m_foreignKeys = SchemaRows<MIForeignKey>();
    m_primaryKeysRead = false;
    m_foreignKeysRead = false;
}

void KeyPrefetch::Finish() noexcept {
    if (m_worker.joinable()) {
        m_worker.join();
    }
    m_primaryKeysDone = false;
    m_foreignKeysDone = false;
}

template <typename Done> bool KeyPrefetch::Wait(const WyString& catalog, const WyString& schema, Done done) {
    if (!m_worker.joinable() || catalog != m_catalog || schema != m_schema) {
        return false;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, done);
    return true;
}

// The worker: both kinds are always signalled done, read or not, so that no taker waits forever.
void KeyPrefetch::Read() noexcept {
    try {
        if (!m_connected) {
            Connect(m_environment, m_connection, m_source, L"prefetching keys");
            m_connected = true;
        }
        ReadPrimaryKeysPostgres(m_connection.Get(), m_schema, WyString(), m_primaryKeys);
        m_primaryKeysRead = true;
    } catch (...) {
        m_unavailable = !m_connected;
    }
    Signal(m_primaryKeysDone);
    try {
        if (m_connected) {
            ReadForeignKeysPostgres(m_connection.Get(), TableRef(),
                                    TableRef{WyString(), m_schema, WyString()}, m_foreignKeys);
            m_foreignKeysRead = true;
        }
    } catch (...) {
    }
    Signal(m_foreignKeysDone);
}

void KeyPrefetch::Signal(bool& done) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        done = true;
    }
    m_changed.notify_all();
}

} // namespace odbc
