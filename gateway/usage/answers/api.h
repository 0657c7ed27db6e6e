// From URLs to questions, and from answers to replies.
#pragma once

#include "usage/answers/answer.h"
#include "usage/http/http.h"

namespace usage {

class Api {
  public:
    // view gives what is to be answered from at this moment; history may be null where nothing can
    // be changed. Backups are made in a folder of the service; what is left of one there goes.
    Api(std::function<View()> view, History *history, std::string backupFolder);

    // Paths below /api/v1/.
    HttpReply handle(const HttpRequest &request);

  private:
    HttpReply get(const HttpRequest &request);
    HttpReply post(const HttpRequest &request);
    HttpReply usage(const HttpRequest &request);
    HttpReply devices(const HttpRequest &request);
    HttpReply exported(const HttpRequest &request);
    HttpReply makeBackup();
    void removeBackup() const;
    HttpReply backupPiece(const HttpRequest &request);

    std::function<View()> view_;
    History *history_;
    std::string backupFile_;
    std::uint64_t copy_ = 0; // that the file is; its pieces don't fit those of another
};

} // namespace usage
