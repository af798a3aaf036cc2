// The parameters of a batch file.
#include <utility>
#include <vector>

#include "batch/batch_xml_reader.h"
#include "config/properties.h"
#include "log/logger.h"

namespace tamrix {

int Properties::parseFile(const char* fileName, bool isConfig, std::function<bool()> isStopped) {
  logger->log(kDebug, msg::kPropertiesParseFile, fileName);
  if (*fileName == '\0') {
    logger->log(kDebug, msg::kPropertiesParseFileNone);
    return 0;
  }
  if (isConfig) logger->log(kDebug, msg::kPropertiesParseFileIsConfig);

  std::vector<BatchParam> params;
  BatchXmlReader reader(fileName, std::move(isStopped));
  const int result = reader.getFileListInBatch(params);
  if (result == BatchXmlReader::kStopped) return 1;
  if (result != 0) {
    logger->log(kUrgent, msg::kPropertiesParseFileFailed, fileName);
    return 1;
  }
  for (const BatchParam& param : params) {
    if (addProperty(param.name, param.value) != 0) {
      logger->log(kUrgent, msg::kPropertiesParamRefused, param.name, param.value);
      logger->log(kUrgent, texts_.paramHint);
      tellHint("", param.name, true);
      return 1;
    }
  }
  return 0;
}

}  // namespace tamrix
