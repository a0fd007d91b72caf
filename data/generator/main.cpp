// market-generator: writes a deterministic synthetic market (snapshot) and a
// trading day of changes to it (replication log) as JSON Lines batches.
#include "market.h"
#include "templates.h"
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>
#include <string>

namespace {

char const kUsage[] =
    "usage: market-generator --out DIR [--securities N] [--seed S]\n"
    "Writes a deterministic synthetic market into DIR (created if missing):\n"
    "  snapshot.jsonl     the tables at the start of the trading day\n"
    "  replication.jsonl  one trading day of changes to them\n"
    "  terminal.json      the moment the snapshot shows and the terminal's user\n"
    "  templates.json     the transaction templates of its markets\n"
    "Options:\n"
    "  --out DIR          folder to write into (required)\n"
    "  --securities N     about how many securities, 200 to 5000000 (default 2000)\n"
    "  --seed S           seed of the random choices, 0 to 18446744073709551615 (default 20261120)\n"
    "  --help             show this text and exit\n"
    "The same options give the same files.\n";

// Decimal digits only, at most `max`: no sign, blank or wrap-around
// ("-1" is not 2^64 - 1, and 2^64 is not 0).
bool parseNumber(char const* text, unsigned long long max, unsigned long long& out)
{
    if (!*text)
        return false;
    unsigned long long value = 0;
    for (char const* p = text; *p; ++p) {
        if (*p < '0' || *p > '9')
            return false;
        unsigned digit = unsigned(*p - '0');
        if (value > (max - digit) / 10)
            return false;
        value = value * 10 + digit;
    }
    out = value;
    return true;
}

bool write(std::string const& path, gen::Market& market, bool snapshot, std::uint64_t& bytes)
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror(path.c_str());
        return false;
    }
    bool ok;
    {
        gen::JsonlWriter w(f);
        if (snapshot)
            market.writeSnapshot(w);
        else
            market.writeReplication(w);
        w.end();
        bytes = w.bytesWritten();
        ok = w.ok();
    }   // the writer flushes when it goes
    ok = std::fclose(f) == 0 && ok;
    if (!ok)
        std::fprintf(stderr, "%s: write failed\n", path.c_str());
    return ok;
}

// The moment and the user a terminal shows this market with, so that its
// expiries, sessions and password warnings look as they were meant to.
bool writeTerminal(std::string const& path)
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror(path.c_str());
        return false;
    }
    bool ok = std::fprintf(f, "{\"now\": \"%s\", \"login\": \"%s\"}\n", gen::kSnapshotMoment, gen::kCurrentLogin) > 0;
    ok = std::fclose(f) == 0 && ok;
    if (!ok)
        std::fprintf(stderr, "%s: write failed\n", path.c_str());
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    std::string out;
    unsigned long long securities = 2000;
    unsigned long long seed = 20261120;
    for (int k = 1; k < argc; ++k) {
        bool hasValue = k + 1 < argc;
        if (!std::strcmp(argv[k], "--out") && hasValue) {
            out = argv[++k];
        } else if (!std::strcmp(argv[k], "--securities") && hasValue) {
            char const* text = argv[++k];
            if (!parseNumber(text, 5000000, securities) || securities < 200) {
                std::fprintf(stderr, "--securities: a number from 200 to 5000000, not '%s'\n", text);
                return 2;
            }
        } else if (!std::strcmp(argv[k], "--seed") && hasValue) {
            char const* text = argv[++k];
            if (!parseNumber(text, std::numeric_limits<std::uint64_t>::max(), seed)) {
                std::fprintf(stderr, "--seed: a whole number from 0 to %llu, not '%s'\n",
                             (unsigned long long)std::numeric_limits<std::uint64_t>::max(), text);
                return 2;
            }
        } else if (!std::strcmp(argv[k], "--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        } else {
            std::fprintf(stderr, "market-generator: unknown option or missing value: %s\n%s", argv[k], kUsage);
            return 2;
        }
    }
    if (out.empty()) {
        std::fprintf(stderr, "market-generator: --out DIR is required\n%s", kUsage);
        return 2;
    }
    std::error_code made;
    std::filesystem::create_directories(out, made);
    if (made) {
        std::fprintf(stderr, "%s: %s\n", out.c_str(), made.message().c_str());
        return 1;
    }

    auto started = std::chrono::steady_clock::now();
    gen::Market market(seed, (long long)securities);
    std::uint64_t snapshotBytes = 0, replicationBytes = 0;
    if (!write(out + "/snapshot.jsonl", market, true, snapshotBytes) ||
        !write(out + "/replication.jsonl", market, false, replicationBytes) || !writeTerminal(out + "/terminal.json") ||
        !gen::writeTemplates(out + "/templates.json"))
        return 1;
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("%zu securities, %zu orders, %zu deals, %zu streams; snapshot %llu bytes, replication %llu bytes; %.2f s\n",
                market.securityCount(), market.orderCount(), market.dealCount(), market.streamCount(),
                (unsigned long long)snapshotBytes, (unsigned long long)replicationBytes, seconds);
    return 0;
}
