// Prints the path of the resource "a.txt" of this program.
//   resource_program            as it was started
//   resource_program --removed  when its file is gone meanwhile
//   resource_program --replaced when another file has its name meanwhile
#include "kx/files/CResourceManager.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

int main(int argc, char** argv)
{
    try {
        const std::string_view what = argc > 1 ? argv[1] : "";
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        if (what == "--removed" || what == "--replaced")
            std::filesystem::remove(program);
        if (what == "--replaced")
            std::ofstream(program) << "another program";
        std::cout << kx::CResourceManager::get()->findResource("a.txt").toBytes();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
