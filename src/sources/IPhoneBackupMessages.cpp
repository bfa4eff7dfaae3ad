#include "sources/IPhoneBackupMessages.h"

#include "support/Sha256.h"

namespace bc {

IPhoneBackupMessages::IPhoneBackupMessages(const std::filesystem::path& database,
                                           PathMapper pathMapper, Companions companions,
                                           std::string description, CustodyRecord::Source origin)
    : MessageDatabase(database, Origin::sealedCopy, std::move(pathMapper)),
      companions_(std::move(companions)),
      description_(std::move(description)),
      origin_(std::move(origin)) {}

CustodyRecord::Source IPhoneBackupMessages::custodySource() const {
    CustodyRecord::Source source = origin_;
    source.path = path();
    source.databaseSHA256 = Sha256::hexOfFile(path());
    return source;
}

}  // namespace bc
