#include "shell/Registry.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "platform/FileApi.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kValuesFile = ".values";

using ValueList = std::vector<std::pair<std::string, std::string>>;

ValueList ReadValues(const fs::path& file)
{
    ValueList values;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) continue;
        values.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return values;
}

// Written beside and renamed over, so that a reader never sees half a file.
bool WriteValues(const fs::path& file, const ValueList& values)
{
    fs::path temporary = file;
    temporary += ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        if (!out) return false;
        for (const auto& [name, value] : values) out << name << '=' << value << '\n';
        out.flush();
        if (!out) return false;
    }
    std::error_code error;
    fs::rename(temporary, file, error);
    if (error) fs::remove(temporary, error);
    return !error;
}

bool IsPlainText(const std::string& text)
{
    return text.find('\n') == std::string::npos && text.find('\r') == std::string::npos;
}

}  // namespace

std::string CUserRegistry::DefaultRoot()
{
    const char* data = std::getenv("XDG_DATA_HOME");
    // A relative XDG_DATA_HOME is invalid and must be ignored.
    if (data != nullptr && data[0] == '/') return std::string(data) + "/tempvox/registry";
    const char* home = std::getenv("HOME");
    std::string homeFolder = home != nullptr ? std::string(home) : platform::HomeFolder();
    return homeFolder + "/.local/share/tempvox/registry";
}

CUserRegistry::CUserRegistry(std::string root) : m_root(std::move(root)) {}

std::optional<std::string> CUserRegistry::KeyFolder(const std::string& key) const
{
    // Segments that could climb out of the root or hide as the values file
    // are refused.
    if (key.empty() || !IsPlainText(key)) return std::nullopt;
    std::stringstream segments(key);
    std::string segment;
    while (std::getline(segments, segment, '/')) {
        if (segment.empty() || segment[0] == '.') return std::nullopt;
    }
    if (key.back() == '/') return std::nullopt;
    return m_root + "/" + key;
}

bool CUserRegistry::CreateKey(const std::string& key) const
{
    std::optional<std::string> folder = KeyFolder(key);
    if (!folder) return false;
    std::error_code error;
    fs::create_directories(*folder, error);
    return !error && fs::is_directory(*folder, error);
}

bool CUserRegistry::SetValue(const std::string& key, const std::string& name, const std::string& value) const
{
    if (name.empty() || name.find('=') != std::string::npos || !IsPlainText(name) || !IsPlainText(value)) {
        return false;
    }
    if (!CreateKey(key)) return false;
    fs::path file = fs::path(*KeyFolder(key)) / kValuesFile;
    ValueList values = ReadValues(file);
    bool replaced = false;
    for (auto& entry : values) {
        if (entry.first == name) {
            entry.second = value;
            replaced = true;
        }
    }
    if (!replaced) values.emplace_back(name, value);
    return WriteValues(file, values);
}

std::optional<std::string> CUserRegistry::GetValue(const std::string& key, const std::string& name) const
{
    std::optional<std::string> folder = KeyFolder(key);
    if (!folder) return std::nullopt;
    for (const auto& [entryName, value] : ReadValues(fs::path(*folder) / kValuesFile)) {
        if (entryName == name) return value;
    }
    return std::nullopt;
}

bool CUserRegistry::KeyExists(const std::string& key) const
{
    std::optional<std::string> folder = KeyFolder(key);
    std::error_code error;
    return folder && fs::is_directory(*folder, error);
}

std::vector<std::string> CUserRegistry::SubKeys(const std::string& key) const
{
    std::vector<std::string> names;
    std::optional<std::string> folder = KeyFolder(key);
    if (!folder) return names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(*folder, error)) {
        std::string name = entry.path().filename().string();
        if (entry.is_directory(error) && name[0] != '.') names.push_back(name);
    }
    return names;
}

bool CUserRegistry::DeleteKeyTree(const std::string& key) const
{
    if (!KeyExists(key)) return false;
    std::error_code error;
    fs::remove_all(*KeyFolder(key), error);
    return !error;
}

void CUserRegistry::DeleteKeyIfEmpty(const std::string& key) const
{
    std::optional<std::string> folder = KeyFolder(key);
    if (!folder) return;
    std::error_code error;
    // remove() takes only an empty folder; anything left keeps the key.
    fs::remove(*folder, error);
}
