// Runs a fuzz target over every file of the corpus folders given, so that
// the corpus replays in ordinary (and sanitizer) builds without libFuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

static int runFile(std::string const& path)
{
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) { std::fprintf(stderr, "cannot open %s\n", path.c_str()); return 1; }
    std::vector<uint8_t> bytes;
    int c;
    while ((c = std::fgetc(f)) != EOF) bytes.push_back(uint8_t(c));
    std::fclose(f);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

int main(int argc, char** argv)
{
    int files = 0, failures = 0;
    for (int i = 1; i < argc; ++i) {
        struct stat st;
        if (stat(argv[i], &st) != 0) { std::fprintf(stderr, "missing %s\n", argv[i]); return 1; }
        if (!S_ISDIR(st.st_mode)) { failures += runFile(argv[i]); ++files; continue; }
        DIR* d = opendir(argv[i]);
        while (dirent* e = readdir(d)) {
            std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            failures += runFile(std::string(argv[i]) + "/" + name);
            ++files;
        }
        closedir(d);
    }
    std::printf("replayed %d inputs\n", files);
    return failures || files == 0 ? 1 : 0;
}
