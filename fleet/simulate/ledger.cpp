#include "simulate/ledger.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fleet {

void writeLedger(const std::string &path, const std::vector<Entry> &entries) {
    std::ofstream file(path);
    for (const auto &[key, fate] : entries)
        file << static_cast<char>(fate) << ' ' << key.seed << ' ' << key.router << ' '
             << key.sequence << ' ' << key.taken << ' ' << key.dropped << ' ' << key.records << ' '
             << static_cast<int>(key.fault) << '\n';
    file.close();
    if (!file)
        throw std::runtime_error("the ledger can't be written: " + path);
}

std::vector<Entry> readLedger(const std::string &path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("the ledger can't be read: " + path);
    std::vector<Entry> entries;
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        Entry entry;
        char fate = 0;
        int fault = 0;
        ReportKey &key = entry.key;
        fields >> fate >> key.seed >> key.router >> key.sequence >> key.taken >> key.dropped >>
            key.records >> fault;
        if (!fields || (fate != 'a' && fate != 'o') || fault < 0 || fault >= kFaults)
            throw std::runtime_error("no line of a ledger: " + line);
        entry.fate = static_cast<Fate>(fate);
        key.fault = static_cast<Fault>(fault);
        entries.push_back(entry);
    }
    return entries;
}

} // namespace fleet
