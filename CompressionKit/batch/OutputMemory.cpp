// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/OutputMemory.h"

#include <sqlite3.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"

namespace tidewell {
namespace {

constexpr int schemaVersion = 1;
constexpr int busyMilliseconds = 5000;

// A row without "made_from" says that nothing smaller was found, under the conditions in "tools".
constexpr const char* schema = R"(
  CREATE TABLE outputs (
    hash TEXT PRIMARY KEY,
    made_from TEXT,
    created_at REAL NOT NULL,
    encoder TEXT,
    score REAL,
    bytes INTEGER NOT NULL,
    tools TEXT NOT NULL
  );
  CREATE INDEX by_origin ON outputs (made_from) WHERE made_from IS NOT NULL;
)";

struct DatabaseError : std::exception {
  explicit DatabaseError(int failure) : code(failure) {}
  /// The file is no database, or not a whole one.
  bool isDamage() const { return (code & 0xff) == SQLITE_CORRUPT || (code & 0xff) == SQLITE_NOTADB; }
  bool isBusy() const { return (code & 0xff) == SQLITE_BUSY; }
  int code;
};

void check(int code) {
  if (code != SQLITE_OK) throw DatabaseError(code);
}

struct Closing {
  void operator()(sqlite3* handle) const { sqlite3_close(handle); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Handle = std::unique_ptr<sqlite3, Closing>;
using Statement = std::unique_ptr<sqlite3_stmt, Closing>;

/// One run of a statement. As long as it lives it may hold a lock on the file.
class Run {
 public:
  template <typename... Values>
  explicit Run(sqlite3_stmt* statement, const Values&... values) : statement_(statement) {
    int index = 0;
    (check(put(++index, values)), ...);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() { sqlite3_reset(statement_); }

  /// False when there is no further row.
  bool step() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) throw DatabaseError(code);
    return code == SQLITE_ROW;
  }

  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  double real(int column) const { return sqlite3_column_double(statement_, column); }
  bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  std::string text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return data ? std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))) : "";
  }

 private:
  int put(int index, const std::string& text) {
    return sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }
  int put(int index, std::int64_t value) { return sqlite3_bind_int64(statement_, index, value); }
  int put(int index, double value) { return sqlite3_bind_double(statement_, index, value); }
  template <typename Value>
  int put(int index, const std::optional<Value>& value) {
    return value ? put(index, *value) : sqlite3_bind_null(statement_, index);
  }

  sqlite3_stmt* statement_;
};

std::optional<OutputMemory::Output> readOutput(Run query) {
  if (!query.step()) return std::nullopt;
  return OutputMemory::Output{
      .hash = query.text(0),
      .madeFrom = query.text(1),
      .when = {query.real(2)},
      .encoder = query.isNull(3) ? std::nullopt : std::optional(query.text(3)),
      .score = query.isNull(4) ? std::nullopt : std::optional(query.real(4)),
      .bytes = query.integer(5),
      .tools = query.text(6),
  };
}

}  // namespace

class OutputMemory::Database {
 public:
  explicit Database(const URL& file) : handle_(open(file)) {
    sqlite3_busy_timeout(handle_.get(), busyMilliseconds);
    // A rollback journal: a write-ahead log needs memory that processes share, which NFS has not. It stays,
    // empty: to make and remove it for every file of a batch takes longer.
    execute("PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = NORMAL");
    if (version() == 0) {
      execute("BEGIN IMMEDIATE");  // a second process waits here, and finds it done
      if (version() == 0) {
        execute(schema);
        execute("PRAGMA user_version = " + std::to_string(schemaVersion));
      }
      execute("COMMIT");
    }
    if (version() != schemaVersion) throw DatabaseError(SQLITE_MISMATCH);
  }

  /// Runs a statement, prepared once; `text` is a literal.
  template <typename... Values>
  Run run(const char* text, const Values&... values) {
    Statement& statement = statements_[text];
    if (!statement) {
      sqlite3_stmt* prepared = nullptr;
      check(sqlite3_prepare_v2(handle_.get(), text, -1, &prepared, nullptr));
      statement.reset(prepared);
    }
    return Run(statement.get(), values...);
  }

 private:
  static Handle open(const URL& file) {
    sqlite3* handle = nullptr;
    const int code =
        sqlite3_open_v2(file.path().c_str(), &handle,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    Handle owned(handle);  // also of one that failed to open
    check(code);
    return owned;
  }

  void execute(const std::string& text) {
    check(sqlite3_exec(handle_.get(), text.c_str(), nullptr, nullptr, nullptr));
  }
  std::int64_t version() {
    Run query = run("PRAGMA user_version");
    query.step();
    return query.integer(0);
  }

  Handle handle_;
  std::unordered_map<const char*, Statement> statements_;
};

OutputMemory::OutputMemory(std::optional<URL> file, std::int64_t maximumRows)
    : file_(file ? *std::move(file) : locations::stateDirectory().appending("outputs.db")),
      maximumRows_(maximumRows) {}

OutputMemory::~OutputMemory() = default;

/// What the operation gives, or the nothing of its type after any failure.
template <typename Operation>
auto OutputMemory::attempt(Operation operation) noexcept -> decltype(operation(std::declval<Database&>())) {
  const std::lock_guard lock(mutex_);
  for (int remaining = 3; remaining > 0 && patience_ > 0; --remaining) {
    const bool isFresh = !database_;
    try {
      if (isFresh) {
        files::createDirectories(file_.deletingLastPathComponent(), 0700, files::Durability::cached);
        database_ = std::make_unique<Database>(file_);
      }
      return operation(*database_);
    } catch (const DatabaseError& error) {
      if (error.isDamage()) {
        // Another process may have put a good one in its place since this one was opened.
        isFresh ? setAside() : database_.reset();
        continue;
      }
      // What cannot be opened is not tried for each of a thousand files, nor a lock that lasts waited for.
      patience_ = error.isBusy() ? patience_ - 1 : database_ ? patience_ : 0;
      break;
    } catch (...) {
      if (!database_) patience_ = 0;
      break;
    }
  }
  return {};
}

/// The journal goes first: it must not be played back into the database that comes next.
void OutputMemory::setAside() noexcept {
  database_.reset();
  for (const char* suffix : {"-journal", ""}) {
    const std::string path = file_.path() + suffix;
    if (std::rename(path.c_str(), (file_.path() + ".damaged" + suffix).c_str()) != 0 && errno != ENOENT) {
      patience_ = 0;
    }
  }
}

std::unordered_set<std::int64_t> OutputMemory::sizes() noexcept {
  return attempt([&](Database& database) {
    std::unordered_set<std::int64_t> result;
    Run query = database.run("SELECT bytes FROM outputs");
    while (query.step()) result.insert(query.integer(0));
    return result;
  });
}

std::optional<OutputMemory::Output> OutputMemory::find(const char* query, const std::string& hash) noexcept {
  return attempt([&](Database& database) { return readOutput(database.run(query, hash)); });
}

std::optional<OutputMemory::Output> OutputMemory::output(const std::string& hash) noexcept {
  return find(
      "SELECT hash, made_from, created_at, encoder, score, bytes, tools FROM outputs "
      "WHERE hash = ? AND made_from IS NOT NULL",
      hash);
}

std::optional<OutputMemory::Output> OutputMemory::madeFrom(const std::string& originalHash) noexcept {
  return find(
      "SELECT hash, made_from, created_at, encoder, score, bytes, tools FROM outputs "
      "WHERE made_from = ? ORDER BY created_at DESC LIMIT 1",
      originalHash);
}

void OutputMemory::remember(const Output& output) noexcept {
  attempt([&](Database& database) {
    database
        .run(
            "INSERT OR REPLACE INTO outputs (hash, made_from, created_at, encoder, score, bytes, tools) "
            "VALUES (?, ?, ?, ?, ?, ?, ?)",
            output.hash, output.madeFrom, output.when.sinceReferenceDate, output.encoder, output.score,
            output.bytes, output.tools)
        .step();
    trim(database);
    return true;
  });
}

bool OutputMemory::knowsNothingSmaller(const std::string& hash, const std::string& conditions) noexcept {
  return attempt([&](Database& database) {
    return database
        .run("SELECT 1 FROM outputs WHERE hash = ? AND made_from IS NULL AND tools = ?", hash, conditions)
        .step();
  });
}

void OutputMemory::rememberNothingSmaller(const std::string& hash, std::int64_t bytes,
                                          const std::string& conditions) noexcept {
  attempt([&](Database& database) {
    // That it is an output is worth more.
    database
        .run(
            "INSERT INTO outputs (hash, created_at, bytes, tools) VALUES (?, ?, ?, ?) ON CONFLICT (hash) "
            "DO UPDATE SET created_at = excluded.created_at, tools = excluded.tools WHERE made_from IS NULL",
            hash, Date::now().sinceReferenceDate, bytes, conditions)
        .step();
    trim(database);
    return true;
  });
}

/// Now and then, and some more than it must, so that counting costs little.
void OutputMemory::trim(Database& database) {
  if (additions_++ % (maximumRows_ / 100 + 1) != 0) return;
  std::int64_t surplus = 0;
  {
    Run count = database.run("SELECT count(*) FROM outputs");
    count.step();
    surplus = count.integer(0) - maximumRows_;
  }
  if (surplus <= 0) return;
  // First those whose loss costs work and no quality.
  database
      .run(
          "DELETE FROM outputs WHERE rowid IN (SELECT rowid FROM outputs "
          "ORDER BY made_from IS NOT NULL, created_at LIMIT ?)",
          surplus + maximumRows_ / 20)
      .step();
}

std::string toolVersions(const URL& toolsDirectory) {
  try {
    std::string result;
    const auto manifest = nlohmann::json::parse(files::read(toolsDirectory.appending("tools.json")));
    for (const auto& tool : manifest.at("tools")) {
      if (!result.empty()) result += ", ";
      result += tool.at("name").get<std::string>() + " " + tool.at("version").get<std::string>();
      // Its version says less than its bytes.
      if (!tool.value("pinned", false)) result += "-" + tool.at("sha256").get<std::string>().substr(0, 12);
    }
    return result;
  } catch (const nlohmann::json::exception&) {
  } catch (const FileError&) {
  }
  return {};
}

}  // namespace tidewell
