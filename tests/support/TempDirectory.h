#pragma once
#include <doctest/doctest.h>
#include <orvi/core/Encoding.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/** A directory of a test's own, removed with all that is in it. */
class TempDirectory {
public:
    TempDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "orvi-test-XXXXXX").string();
        REQUIRE(mkdtemp(pattern.data()) != nullptr);
        _path = pattern;
    }
    ~TempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(const char* name) const { return _path / name; }
    /** A path in it as the library takes it. */
    orvi::String name(const char* name) const
    {
        return orvi::StringHelper::utf8ToWide((_path / name).string().c_str());
    }
    /** Makes a file of it. */
    void write(const std::filesystem::path& name, const std::string& bytes = "x") const
    {
        std::ofstream(_path / name, std::ios::binary) << bytes;
    }
    std::string read(const std::filesystem::path& name) const
    {
        std::ifstream file(_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path _path;
};
