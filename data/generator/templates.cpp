#include "templates.h"

#include <cstdio>
#include <string>
#include <vector>

namespace gen {
namespace {

struct Template
{
    int code;
    char const* what;
    std::vector<char const*> parameters;
    std::vector<char const*> optional;
};

std::string list(std::vector<char const*> const& names)
{
    std::string out = "[";
    for (std::size_t k = 0; k < names.size(); ++k) out += (k ? ", \"" : "\"") + std::string(names[k]) + "\"";
    return out + "]";
}

} // namespace

bool writeTemplates(std::string const& path)
{
    // The markets the snapshot lists; 5 is the request-for-stream market,
    // whose cancels also name the side and the stream.
    struct Stock
    {
        int id;
        char const* code;
    };
    Stock const stocks[] = {{1, "DERIV"}, {4, "COMMOD"}, {5, "STREAM"}};
    std::vector<char const*> const cancel{"Account", "order_id", "Security", "sec_id", "dkh_request"};
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror(path.c_str());
        return false;
    }
    bool ok = std::fputs("{\"templates\": [\n", f) >= 0;
    bool first = true;
    for (Stock const& stock : stocks) {
        std::vector<char const*> const cancelOptional =
            stock.id == 5 ? std::vector<char const*>{"BuySell", "Stream"} : std::vector<char const*>{};
        Template const templates[] = {
            {1025, "place order", {"Security", "Account", "BuySell", "Price", "Quantity", "Type"}, {}},
            {1028, "cancel order", cancel, cancelOptional},
            {1280, "cancel order (flagged)", cancel, cancelOptional},
            {1032, "cancel orders by security", {"Account", "Security", "BuySell"}, {}},
        };
        for (Template const& t : templates) {
            ok = std::fprintf(f, "%s  {\"code\": %d, \"stock\": %d, \"board\": 0, \"name\": \"%s, %s\", \"parameters\": %s, \"optional\": %s}",
                              first ? "" : ",\n", t.code, stock.id, t.what, stock.code, list(t.parameters).c_str(),
                              list(t.optional).c_str()) > 0 && ok;
            first = false;
        }
    }
    ok = std::fputs("\n]}\n", f) >= 0 && ok;
    ok = std::fclose(f) == 0 && ok;
    if (!ok)
        std::fprintf(stderr, "%s: write failed\n", path.c_str());
    return ok;
}

} // namespace gen
