// The parameters of a batch file.
#include <vector>

#include "batch/batch_xml_reader.h"
#include "config/properties.h"
#include "log/logger.h"

namespace tamrix {

int Properties::parseFile(const char* fileName, bool isConfig) {
  logger->log(kDebug, msg::kPropParseFile, fileName);
  if (*fileName == '\0') {
    logger->log(kDebug, msg::kPropParseFileNone);
    return 0;
  }
  if (isConfig) logger->log(kDebug, msg::kPropParseFileIsConfig);

  std::vector<BatchParam> params;
  BatchXmlReader reader(fileName);
  if (reader.getFileListInBatch(params) != 0) {
    logger->log(kUrgent, msg::kPropParseFileFailed, fileName);
    return 1;
  }
  for (const BatchParam& param : params) {
    if (addProperty(param.name, param.value) != 0) {
      logger->log(kUrgent, msg::kPropParamRefused, param.name, param.value);
      logger->log(kUrgent, msg::kPropParamHint);
      return 1;
    }
  }
  return 0;
}

}  // namespace tamrix
