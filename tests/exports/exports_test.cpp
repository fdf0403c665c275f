// The shared library's dynamic symbols are exactly the export list and every
// export resolves. What each export does with its arguments is the contract
// suite's (tests/contract).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>


namespace {

std::set<std::string> listed_exports() {
    std::ifstream map(ROKIP_EXPORT_MAP);
    std::set<std::string> names;
    std::string line;
    bool global = false;
    while (std::getline(map, line)) {
        if (line.find("global:") != std::string::npos) global = true;
        else if (line.find("local:") != std::string::npos) global = false;
        else if (global && line.find(';') != std::string::npos) {
            auto b = line.find_first_not_of(' ');
            names.insert(line.substr(b, line.find(';') - b));
        }
    }
    return names;
}

std::set<std::string> dynamic_symbols() {
    std::set<std::string> names;
    std::string cmd = std::string("nm -D --defined-only ") + ROKIP_SHARED_LIBRARY;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return names;
    char buf[512];
    while (fgets(buf, sizeof buf, p)) {
        char addr[64], kind[8], name[400];
        if (sscanf(buf, "%63s %7s %399s", addr, kind, name) == 3 && std::string(kind) == "T") names.insert(name);
    }
    pclose(p);
    return names;
}

TEST(Exports, DynamicSymbolsAreExactlyTheExportList) {
    auto listed = listed_exports();
    ASSERT_GT(listed.size(), 37u);
    EXPECT_EQ(dynamic_symbols(), listed);
}

TEST(Exports, EveryListedNameResolves) {
    void* lib = dlopen(ROKIP_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    for (const auto& name : listed_exports()) EXPECT_NE(dlsym(lib, name.c_str()), nullptr) << name;
    dlclose(lib);
}

}  // namespace
