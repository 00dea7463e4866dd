#pragma once
#include <optional>
#include <string>
#include <vector>

// The per-user registry that registration writes and activation reads, kept
// as plain files so that any host can read it without this code: each key
// is a folder under the root, named by its path ("CLSID/{...}/InprocServer32"),
// and its values are "name=value" lines in a file ".values" inside it. The
// default value is named "@".
class CUserRegistry {
public:
    // $XDG_DATA_HOME/tempvox/registry, else ~/.local/share/tempvox/registry.
    static std::string DefaultRoot();

    explicit CUserRegistry(std::string root = DefaultRoot());
    const std::string& Root() const { return m_root; }

    // Each answers false when the key path is malformed or the file system
    // refuses; a failed write leaves the earlier value in place.
    bool CreateKey(const std::string& key) const;
    bool SetValue(const std::string& key, const std::string& name, const std::string& value) const;
    std::optional<std::string> GetValue(const std::string& key, const std::string& name) const;
    bool KeyExists(const std::string& key) const;
    std::vector<std::string> SubKeys(const std::string& key) const;
    // Removes the key with everything below it; false when it was not there.
    bool DeleteKeyTree(const std::string& key) const;
    // Removes the key when it holds neither values nor subkeys.
    void DeleteKeyIfEmpty(const std::string& key) const;

private:
    std::optional<std::string> KeyFolder(const std::string& key) const;

    std::string m_root;
};
