#include "mainstay/state/settings_file.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/crc.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "config/base/log.h"

namespace fs = std::filesystem;

namespace state {

namespace {

/// "VexS": how other programs and we tell that the file is ours.
constexpr int64_t kApplicationID = 0x56657853;
constexpr int64_t kVersion = 1;
/// Enough to find out what keeps happening, and no way to fill the disk.
constexpr size_t kMaxDamagedFiles = 5;
/// Another program may look into the file.
constexpr int kBusyMilliseconds = 2000;

/// A parameter's value has the type of its column's content: INTEGER for numbers, BLOB for texts, which may have any
/// bytes.
constexpr const char* kSchema = R"(
    CREATE TABLE value (model TEXT NOT NULL, config INTEGER NOT NULL, param INTEGER NOT NULL, value ANY NOT NULL,
        sum INTEGER NOT NULL, PRIMARY KEY (model, config, param)) STRICT, WITHOUT ROWID;
    CREATE TABLE preset (model TEXT NOT NULL, number INTEGER NOT NULL, saved INTEGER NOT NULL,
        PRIMARY KEY (model, number)) STRICT, WITHOUT ROWID;
    CREATE TABLE preset_value (model TEXT NOT NULL, number INTEGER NOT NULL, param INTEGER NOT NULL,
        value ANY NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY (model, number, param)) STRICT, WITHOUT ROWID;
    CREATE TABLE change (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, config INTEGER NOT NULL,
        param INTEGER NOT NULL, before TEXT NOT NULL, after TEXT NOT NULL, who TEXT NOT NULL) STRICT;
    CREATE INDEX change_time ON change (time);
)";

/// What makes a value of a preset or of a configuration what it is, in one number.
int64_t CheckSum(const std::string& model, int64_t group, eParam_t param, const vexa::Value& value)
{
    boost::crc_32_type sum;
    const auto add = [&sum](const std::string& text) { sum.process_bytes(text.c_str(), text.size() + 1); };
    add(model);
    add(std::to_string(group));
    add(std::to_string(static_cast<uint32_t>(param)));
    if (const auto* const number = std::get_if<unsigned int>(&value))
        add("n" + std::to_string(*number));
    else
        add("t" + std::get<std::string>(value));
    return sum.checksum();
}

void Bind(SQLite::Statement& statement, int index, const vexa::Value& value)
{
    if (const auto* const number = std::get_if<unsigned int>(&value)) return statement.bind(index, *number);
    const std::string& bytes = std::get<std::string>(value);
    statement.bind(index, bytes.empty() ? "" : static_cast<const void*>(bytes.data()),
                   static_cast<int>(bytes.size()));
}

std::string TextOf(const SQLite::Column& column)
{
    const auto* const bytes = static_cast<const char*>(column.getBlob());
    return bytes ? std::string(bytes, static_cast<size_t>(column.getBytes())) : std::string();
}

vexa::Value ValueOf(const SQLite::Column& column)
{
    if (column.isInteger()) return column.getUInt();
    return TextOf(column);
}

[[noreturn]] void ThrowDamaged(const std::string& what)
{
    throw SQLite::Exception(what, SQLITE_CORRUPT);
}

/// The row group, param, value, sum of a statement.
std::pair<eParam_t, vexa::Value> CheckedValue(SQLite::Statement& row, const std::string& model)
{
    const auto param = static_cast<eParam_t>(row.getColumn(1).getUInt());
    vexa::Value value = ValueOf(row.getColumn(2));
    if (row.getColumn(3).getInt64() != CheckSum(model, row.getColumn(0).getInt64(), param, value))
        ThrowDamaged("a value does not match its check sum");
    return {param, std::move(value)};
}

void SyncDirectory(const std::string& directory)
{
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) return;
    fsync(descriptor);
    close(descriptor);
}

/// The file holds passwords, so nobody else may read it; SQLite gives its companions the same mode.
void MakePrivate(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor != -1) close(descriptor);
}

/// A name beside the file with the time, which no other file has.
std::string AsideOf(const std::string& path)
{
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> text{};
    strftime(text.data(), text.size(), ".damaged-%Y%m%dT%H%M%SZ", &utc);
    std::string aside = path + text.data();
    for (int more = 1; fs::exists(aside); ++more) aside = path + text.data() + "-" + std::to_string(more);
    return aside;
}

void Rename(const std::string& from, const std::string& to)
{
    std::error_code error;
    fs::rename(from, to, error);
    if (error && error != std::errc::no_such_file_or_directory)
        throw SQLite::Exception("cannot rename " + from + ": " + error.message(), SQLITE_CANTOPEN);
}

void RemoveOldDamagedFiles(const std::string& directory, const std::string& prefix)
{
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix) && !name.ends_with("-wal")) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());  // their names have the time
    for (size_t i = 0; i + kMaxDamagedFiles < files.size(); ++i) {
        fs::remove(files[i], error);
        fs::remove(files[i] + "-wal", error);
    }
}

/// SQLite takes a file with other versions for one of the future, which it must not write: and so like a medium that is
/// read-only.
void CheckHeader(const std::string& path)
{
    constexpr size_t kWriteVersion = 18;
    constexpr char kWriteAheadLog = 2;
    std::array<char, kWriteVersion + 1> header{};
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t n = descriptor == -1 ? -1 : read(descriptor, header.data(), header.size());
    if (descriptor != -1) close(descriptor);
    if (n == static_cast<ssize_t>(header.size()) && (header.back() < 1 || header.back() > kWriteAheadLog))
        ThrowDamaged("its header is damaged");
}

bool IsOurs(SQLite::Database& file)
{
    return file.execAndGet("PRAGMA application_id").getInt64() == kApplicationID;
}

bool IsEmpty(SQLite::Database& file)
{
    return file.execAndGet("SELECT count(*) FROM sqlite_schema").getInt64() == 0;
}

void MakeTables(SQLite::Database& file)
{
    SQLite::Transaction all(file, SQLite::TransactionBehavior::IMMEDIATE);
    file.exec(kSchema);
    file.exec("PRAGMA application_id = " + std::to_string(kApplicationID));
    file.exec("PRAGMA user_version = " + std::to_string(kVersion));
    all.commit();
}

/// Throws when the structure is not whole, or a value not what was written.
void CheckContent(SQLite::Database& file)
{
    if (!IsOurs(file)) ThrowDamaged("it is another program's");
    const int64_t version = file.execAndGet("PRAGMA user_version").getInt64();
    if (version > kVersion) ThrowDamaged("it is of the newer version " + std::to_string(version));
    if (version < kVersion) ThrowDamaged("it has no version");
    if (const std::string answer = file.execAndGet("PRAGMA quick_check").getString(); answer != "ok")
        ThrowDamaged(answer);
    for (const char* const rows : {"SELECT config, param, value, sum, model FROM value",
                                   "SELECT number, param, value, sum, model FROM preset_value"}) {
        SQLite::Statement row(file, rows);
        while (row.executeStep()) CheckedValue(row, TextOf(row.getColumn(4)));
    }
    for (const char* const rows : {"SELECT model, number, saved FROM preset LIMIT 1",
                                   "SELECT time, config, param, before, after, who FROM change LIMIT 1"})
        SQLite::Statement(file, rows).executeStep();
}

/// Whether the medium, the directory or the lack of memory is in the way, and may be gone later.
bool IsObstacle(const std::exception& error)
{
    // SQLITE_PROTOCOL: too many programs want the file at once.
    constexpr std::array kObstacles{SQLITE_PROTOCOL, SQLITE_PERM,  SQLITE_BUSY, SQLITE_LOCKED,  SQLITE_NOMEM,
                                    SQLITE_READONLY, SQLITE_IOERR, SQLITE_FULL, SQLITE_CANTOPEN};
    const auto* const sql = dynamic_cast<const SQLite::Exception*>(&error);
    return !sql ||
           std::find(kObstacles.begin(), kObstacles.end(), sql->getErrorCode() & 0xff) != kObstacles.end();
}

}  // namespace

/// Tells other daemons that the directory is in use, until the process ends.
class SettingsFile::DirectoryLock {
  public:
    explicit DirectoryLock(const std::string& directory)
        : m_descriptor(open((directory + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
    }
    ~DirectoryLock()
    {
        if (m_descriptor != -1) close(m_descriptor);
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

    bool IsOurs() const { return m_descriptor != -1 && flock(m_descriptor, LOCK_EX | LOCK_NB) == 0; }
    /// A directory that nothing can be written to, or that knows no locks, is nobody's.
    bool IsOthers() const
    {
        return m_descriptor != -1 && flock(m_descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    }

  private:
    const int m_descriptor;
};

SettingsFile::SettingsFile(std::string directory, std::string model, size_t historyLimit)
    : m_directory(std::move(directory)),
      m_path(m_directory.empty() ? "" : m_directory + "/settings.db"),
      m_model(std::move(model)),
      m_historyLimit(historyLimit)
{
}

SettingsFile::~SettingsFile() = default;

bool SettingsFile::Open()
{
    vexa::MutexLock hold(m_lock);
    if (m_directory.empty()) {
        m_file = std::make_unique<SQLite::Database>(":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        MakeTables(*m_file);
        return true;
    }
    if (!LockDirectory()) return false;
    try {
        OpenOrReplace();
    } catch (const std::exception& obstacle) {
        m_problem = obstacle.what();
        vexa::Print("mainstay: cannot write the settings: %s; trying again\n", obstacle.what());
        OpenReadOnly();
    }
    return true;
}

/// @return false when another process has it. A directory that cannot be locked yet is tried again later.
bool SettingsFile::LockDirectory()
{
    if (m_directoryLock && m_directoryLock->IsOurs()) return true;
    mkdir(m_directory.c_str(), 0700);
    m_directoryLock = std::make_unique<DirectoryLock>(m_directory);
    return !m_directoryLock->IsOthers();
}

std::string SettingsFile::Problem() const
{
    vexa::MutexLock hold(m_lock);
    return m_problem;
}

std::vector<std::string> SettingsFile::Notes() const
{
    vexa::MutexLock hold(m_lock);
    return m_notes;
}

void SettingsFile::OpenOrReplace()
{
    const bool existed = fs::exists(m_path);
    try {
        OpenExisting();
        return;
    } catch (const std::exception& error) {
        m_file.reset();
        if (IsObstacle(error)) throw;
        if (existed) MoveAside(error.what());
    }
    RestoreBackUp();
}

/// Makes the tables in a file that has none.
void SettingsFile::OpenExisting()
{
    MakePrivate(m_path);
    CheckHeader(m_path);
    auto file = std::make_unique<SQLite::Database>(m_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                                                   kBusyMilliseconds);
    file->exec("PRAGMA synchronous = FULL");
    file->execAndGet("PRAGMA journal_mode = WAL");
    if (IsEmpty(*file)) {
        if (fs::exists(m_path + ".bak")) ThrowDamaged("it is empty");
        MakeTables(*file);
    }
    CheckContent(*file);
    m_file = std::move(file);
    m_isReadOnly = false;
    m_problem.clear();
}

/// Better the values of a medium that cannot be written to than none. Not even SQLite's own companions can be made
/// there, so it is told that nobody else writes.
void SettingsFile::OpenReadOnly()
{
    try {
        std::string address = "file:";
        for (const char c : m_path) {
            if (c == '%' || c == '?' || c == '#') {
                std::array<char, 4> code{};
                snprintf(code.data(), code.size(), "%%%02x", static_cast<unsigned char>(c));
                address += code.data();
            } else {
                address += c;
            }
        }
        auto file = std::make_unique<SQLite::Database>(address + "?immutable=1",
                                                       SQLite::OPEN_READONLY | SQLITE_OPEN_URI);
        CheckContent(*file);
        m_file = std::move(file);
        m_isReadOnly = true;
    } catch (const std::exception&) {  // the problem is known already
    }
}

void SettingsFile::MoveAside(const std::string& reason)
{
    const std::string aside = AsideOf(m_path);
    m_file.reset();
    Rename(m_path, aside);
    Rename(m_path + "-wal", aside + "-wal");
    std::error_code error;
    fs::remove(m_path + "-shm", error);
    RemoveOldDamagedFiles(m_directory, "settings.db.damaged-");
    m_notes.push_back(m_path + " could not be used (" + reason + ") and is now " + aside);
    vexa::Print("mainstay: %s\n", m_notes.back().c_str());
}

void SettingsFile::RestoreBackUp()
{
    const std::string copy = m_path + ".bak";
    if (fs::exists(copy)) {
        try {
            MakePrivate(m_path);
            SQLite::Database(copy, SQLite::OPEN_READWRITE).backup(m_path.c_str(), SQLite::Database::Save);
            OpenExisting();
            m_notes.push_back("the values are those of the last good copy, " + copy);
            vexa::Print("mainstay: %s\n", m_notes.back().c_str());
            return;
        } catch (const std::exception& error) {
            m_file.reset();
            if (IsObstacle(error)) throw;
            Rename(copy, AsideOf(copy));
            RemoveOldDamagedFiles(m_directory, "settings.db.bak.damaged-");
            std::error_code ignored;
            for (const char* const part : {"", "-wal", "-shm"}) fs::remove(m_path + part, ignored);
        }
    }
    OpenExisting();
    m_notes.push_back("there is no good copy: the device has its factory defaults");
    vexa::Print("mainstay: %s\n", m_notes.back().c_str());
}

SQLite::Database& SettingsFile::File()
{
    if (!m_file) throw SQLite::Exception(m_problem, SQLITE_CANTOPEN);
    return *m_file;
}

std::map<eConfigID_t, Values> SettingsFile::LoadValues()
{
    vexa::MutexLock hold(m_lock);
    std::map<eConfigID_t, Values> values;
    if (!m_file) return values;
    SQLite::Statement row(*m_file, "SELECT config, param, value, sum FROM value WHERE model = ?1");
    row.bind(1, m_model);
    while (row.executeStep()) values[row.getColumn(0).getInt()].insert(CheckedValue(row, m_model));
    return values;
}

size_t SettingsFile::CountOfOtherModels()
{
    vexa::MutexLock hold(m_lock);
    if (!m_file) return 0;
    SQLite::Statement count(*m_file, "SELECT count(*) FROM value WHERE model <> ?1");
    count.bind(1, m_model);
    count.executeStep();
    return static_cast<size_t>(count.getColumn(0).getInt64());
}

bool SettingsFile::Recover(const std::exception& reason)
{
    vexa::MutexLock hold(m_lock);
    m_problem = reason.what();
    if (m_directory.empty()) return false;
    const bool isWhole = IsObstacle(reason);
    if (m_file && isWhole && !m_isReadOnly) return false;
    if (!LockDirectory()) throw SQLite::Exception("another daemon keeps its state there", SQLITE_BUSY);
    if (!isWhole) MoveAside(reason.what());
    m_file.reset();
    OpenOrReplace();
    return true;
}

int64_t SettingsFile::Write(const Batch& batch)
{
    vexa::MutexLock hold(m_lock);
    if (!m_path.empty() && m_file && !fs::exists(m_path)) ThrowDamaged("it was removed");
    SQLite::Transaction all(File(), SQLite::TransactionBehavior::IMMEDIATE);
    PutValues(batch);
    PutHistory(batch.history);
    all.commit();
    m_problem.clear();
    return File().getLastInsertRowid();
}

void SettingsFile::PutValues(const Batch& batch)
{
    SQLite::Statement put(File(), "INSERT OR REPLACE INTO value VALUES (?1, ?2, ?3, ?4, ?5)");
    put.bind(1, m_model);
    for (const auto& [configID, values] : batch.values)
        for (const auto& [param, value] : values) {
            put.bind(2, configID);
            put.bind(3, static_cast<uint32_t>(param));
            Bind(put, 4, value);
            put.bind(5, CheckSum(m_model, configID, param, value));
            put.exec();
            put.reset();
        }
}

void SettingsFile::PutHistory(const std::vector<HistoryLine>& lines)
{
    if (lines.empty()) return;
    SQLite::Statement put(
        File(),
        "INSERT INTO change (time, config, param, before, after, who) VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
    for (const HistoryLine& line : lines) {
        put.bind(1, line.time);
        put.bind(2, line.configID);
        put.bind(3, static_cast<uint32_t>(line.param));
        put.bind(4, line.before);
        put.bind(5, line.after);
        put.bind(6, line.who);
        put.exec();
        put.reset();
    }
    SQLite::Statement trim(File(), "DELETE FROM change WHERE id <= ?1");
    trim.bind(1, File().getLastInsertRowid() - static_cast<int64_t>(m_historyLimit));
    trim.exec();
}

void SettingsFile::SavePreset(const SavedPreset& preset)
{
    vexa::MutexLock hold(m_lock);
    SQLite::Transaction all(File(), SQLite::TransactionBehavior::IMMEDIATE);
    Erase(preset.number);
    SQLite::Statement head(File(), "INSERT INTO preset VALUES (?1, ?2, ?3)");
    head.bind(1, m_model);
    head.bind(2, preset.number);
    head.bind(3, preset.saved);
    head.exec();
    SQLite::Statement put(File(), "INSERT INTO preset_value VALUES (?1, ?2, ?3, ?4, ?5)");
    put.bind(1, m_model);
    put.bind(2, preset.number);
    for (const auto& [param, value] : preset.values) {
        put.bind(3, static_cast<uint32_t>(param));
        Bind(put, 4, value);
        put.bind(5, CheckSum(m_model, preset.number, param, value));
        put.exec();
        put.reset();
    }
    all.commit();
}

std::optional<SavedPreset> SettingsFile::LoadPreset(unsigned int number)
{
    vexa::MutexLock hold(m_lock);
    SQLite::Statement head(File(), "SELECT saved FROM preset WHERE model = ?1 AND number = ?2");
    head.bind(1, m_model);
    head.bind(2, number);
    if (!head.executeStep()) return std::nullopt;
    SavedPreset preset{number, head.getColumn(0).getInt64(), {}};
    SQLite::Statement row(
        File(), "SELECT number, param, value, sum FROM preset_value WHERE model = ?1 AND number = ?2");
    row.bind(1, m_model);
    row.bind(2, number);
    while (row.executeStep()) preset.values.insert(CheckedValue(row, m_model));
    return preset;
}

bool SettingsFile::Erase(unsigned int number)
{
    bool found = false;
    for (const char* const table : {"preset_value", "preset"}) {
        SQLite::Statement erase(File(),
                                std::string("DELETE FROM ") + table + " WHERE model = ?1 AND number = ?2");
        erase.bind(1, m_model);
        erase.bind(2, number);
        found = erase.exec() > 0;
    }
    return found;
}

bool SettingsFile::DeletePreset(unsigned int number)
{
    vexa::MutexLock hold(m_lock);
    SQLite::Transaction all(File(), SQLite::TransactionBehavior::IMMEDIATE);
    const bool found = Erase(number);
    all.commit();
    return found;
}

void SettingsFile::DeleteAllPresets()
{
    vexa::MutexLock hold(m_lock);
    SQLite::Transaction all(File(), SQLite::TransactionBehavior::IMMEDIATE);
    for (const char* const table : {"preset_value", "preset"}) {
        SQLite::Statement erase(File(), std::string("DELETE FROM ") + table + " WHERE model = ?1");
        erase.bind(1, m_model);
        erase.exec();
    }
    all.commit();
}

std::vector<std::pair<SavedPreset, size_t>> SettingsFile::ListPresets()
{
    vexa::MutexLock hold(m_lock);
    SQLite::Statement row(
        File(),
        "SELECT number, saved, (SELECT count(*) FROM preset_value AS v WHERE v.model = p.model "
        "AND v.number = p.number) FROM preset AS p WHERE model = ?1 ORDER BY number");
    row.bind(1, m_model);
    std::vector<std::pair<SavedPreset, size_t>> presets;
    while (row.executeStep())
        presets.emplace_back(SavedPreset{row.getColumn(0).getUInt(), row.getColumn(1).getInt64(), {}},
                             static_cast<size_t>(row.getColumn(2).getInt64()));
    return presets;
}

std::vector<HistoryLine> SettingsFile::ReadHistory(const HistoryQuery& query)
{
    vexa::MutexLock hold(m_lock);
    std::string params;
    for (const eParam_t param : query.params)
        params += (params.empty() ? "" : ", ") + std::to_string(static_cast<uint32_t>(param));
    SQLite::Statement row(File(),
                          "SELECT id, time, config, param, before, after, who FROM change "
                          "WHERE time >= ?1 AND id > ?2" +
                              (params.empty() ? "" : " AND param IN (" + params + ")") +
                              " ORDER BY id DESC LIMIT ?3");
    row.bind(1, query.since);
    row.bind(2, query.afterID);
    row.bind(3, static_cast<int64_t>(query.limit));
    std::vector<HistoryLine> lines;
    while (row.executeStep())
        lines.push_back({row.getColumn(0).getInt64(), row.getColumn(1).getInt64(), row.getColumn(2).getInt(),
                         static_cast<eParam_t>(row.getColumn(3).getUInt()), TextOf(row.getColumn(4)),
                         TextOf(row.getColumn(5)), TextOf(row.getColumn(6))});
    std::reverse(lines.begin(), lines.end());
    return lines;
}

int64_t SettingsFile::NewestLine()
{
    vexa::MutexLock hold(m_lock);
    return File().execAndGet("SELECT coalesce(max(id), 0) FROM change").getInt64();
}

void SettingsFile::BackUp()
{
    vexa::MutexLock hold(m_lock);
    if (m_directory.empty()) return;
    const std::string copy = m_path + ".bak", fresh = copy + ".new";
    std::error_code error;
    fs::remove(fresh, error);
    MakePrivate(fresh);
    File().backup(fresh.c_str(), SQLite::Database::Save);
    CheckContent(*std::make_unique<SQLite::Database>(fresh, SQLite::OPEN_READWRITE));
    Rename(fresh, copy);
    SyncDirectory(m_directory);
}

bool SettingsFile::WantsBackUp() const
{
    if (m_directory.empty()) return false;
    std::error_code error;
    const auto copied = fs::last_write_time(m_path + ".bak", error);
    const auto age = fs::file_time_type::clock::now() - copied;
    return error || age > std::chrono::hours(24) || age < -std::chrono::hours(24);  // the clock may be set
}

}  // namespace state
