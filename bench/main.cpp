// directory-bench [--market DIR] [--schema FILE] [Google Benchmark flags]
#include "market.h"

#include <QCoreApplication>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    // The directories own timers: give them an application. It gets its own
    // copy of the arguments, which the benchmark library rewrites.
    int appArgc = 1;
    char* appArgv[] = {argv[0], nullptr};
    QCoreApplication app(appArgc, appArgv);

    benchmark::Initialize(&argc, argv);
    bench::options().market = QStringLiteral(SOURCE_DIR "/data/market");
    bench::options().schema = QStringLiteral(SOURCE_DIR "/data/schema.json");
    for (int k = 1; k < argc; ++k) {
        bool hasValue = k + 1 < argc;
        if (!std::strcmp(argv[k], "--market") && hasValue) {
            bench::options().market = QString::fromLocal8Bit(argv[++k]);
        } else if (!std::strcmp(argv[k], "--schema") && hasValue) {
            bench::options().schema = QString::fromLocal8Bit(argv[++k]);
        } else {
            std::fprintf(stderr, "directory-bench: unknown argument '%s'\n"
                                 "usage: directory-bench [--market DIR] [--schema FILE] [--benchmark_...]\n", argv[k]);
            return 2;
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
