#pragma once

// Where preferences are kept by others: SQLite, QSettings and GSettings, each with its keys and
// statements prepared, and the folder for everybody's files.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sqlite3.h>
#include <sys/vfs.h>

#ifdef TESSARINE_BENCH_SCHEMAS
#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#endif
#ifdef TESSARINE_BENCH_QT
#include <QSettings>
#endif

namespace {

constexpr std::size_t keyCount = 100;

std::string folder;  // of this run's files

std::string keyOf(std::size_t number) { return "editor-setting-no" + std::to_string(number); }

void makeFolder() {
  folder = (std::filesystem::temp_directory_path() / "tessarine-bench-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) std::abort();
  constexpr auto ext4 = 0xef53;
  struct statfs status {};
  ::statfs(folder.c_str(), &status);
  if (status.f_type != ext4) std::puts("NOTE: the folder for temporary files is not on ext4");
}

/// One table of keys and values, with its statements prepared.
class SqliteTable {
 public:
  explicit SqliteTable(const std::string& path) {
    check(sqlite3_open(path.c_str(), &database_));
    execute("PRAGMA journal_mode = WAL");
    execute("PRAGMA synchronous = NORMAL");
    execute(
        "CREATE TABLE IF NOT EXISTS entries(key TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID");
    prepare(upsert_,
            "INSERT INTO entries VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE"
            " SET value = excluded.value");
    prepare(select_, "SELECT value FROM entries WHERE key = ?1");
  }
  ~SqliteTable() {
    sqlite3_finalize(upsert_);
    sqlite3_finalize(select_);
    sqlite3_close(database_);
  }
  SqliteTable(const SqliteTable&) = delete;
  SqliteTable& operator=(const SqliteTable&) = delete;

  void execute(const char* sql) { check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
  void set(const std::string& key, int value) {
    bind(upsert_, key);
    sqlite3_bind_int(upsert_, 2, value);
    check(sqlite3_step(upsert_));
    sqlite3_reset(upsert_);
  }
  int get(const std::string& key) {
    bind(select_, key);
    check(sqlite3_step(select_));
    const int value = sqlite3_column_int(select_, 0);
    sqlite3_reset(select_);
    return value;
  }

 private:
  static void check(int code) {
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) std::abort();
  }
  static void bind(sqlite3_stmt* statement, const std::string& key) {
    sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  }
  void prepare(sqlite3_stmt*& statement, const char* sql) {
    check(sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
};

#ifdef TESSARINE_BENCH_QT
class QSettingsPeer {
 public:
  explicit QSettingsPeer(const char* name)
      : settings_(QString::fromStdString(folder + "/" + name + ".ini"), QSettings::IniFormat) {
    for (std::size_t i = 0; i < keyCount; ++i) {
      keys_.push_back(QString::fromStdString(keyOf(i)));
      settings_.setValue(keys_.back(), 7);
    }
    settings_.sync();
  }
  QSettings& settings() { return settings_; }
  const QString& key(std::size_t i) const { return keys_[i]; }

 private:
  QSettings settings_;
  std::vector<QString> keys_;
};
#endif

#ifdef TESSARINE_BENCH_SCHEMAS
/// In memory only: its backends that keep values take longer.
class GSettingsPeer {
 public:
  GSettingsPeer() {
    for (std::size_t i = 0; i < keyCount; ++i) keys_.push_back(keyOf(i));
    GSettingsSchemaSource* const source = g_settings_schema_source_new_from_directory(
        TESSARINE_BENCH_SCHEMAS, nullptr, FALSE, nullptr);
    GSettingsSchema* const schema =
        g_settings_schema_source_lookup(source, "com.nimbrel.tessarine.bench", FALSE);
    settings_ = g_settings_new_full(schema, g_memory_settings_backend_new(), nullptr);
    for (std::size_t i = 0; i < keyCount; ++i) set(i, 7);
  }
  int get(std::size_t i) const { return g_settings_get_int(settings_, keys_[i].c_str()); }
  void set(std::size_t i, int value) { g_settings_set_int(settings_, keys_[i].c_str(), value); }
  void observe(int& heard) { g_signal_connect(settings_, "changed", G_CALLBACK(count), &heard); }

 private:
  static void count(GSettings* /*settings*/, const char* /*key*/, gpointer heard) {
    ++*static_cast<int*>(heard);
  }

  GSettings* settings_;
  std::vector<std::string> keys_;
};
#endif

}  // namespace
