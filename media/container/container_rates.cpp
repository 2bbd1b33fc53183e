// Asks the head of a file alone.

#include "container/container_rates.h"

#include "base/error.h"

namespace qlnmedia {

std::vector<AVRational> ContainerRates(const MediaFile& file) {
  std::vector<AVRational> rates(file.context()->nb_streams, AVRational{0, 1});
  if (file.formatName().substr(0, 8) != "matroska") return rates;
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  AVFormatContext* opened = nullptr;
  const int result = avformat_open_input(&opened, ("file:" + file.path()).c_str(), nullptr, &options);
  av_dict_free(&options);
  if (result < 0) throw Error(file.path(), "cannot be opened: " + LibavErrorText(result));
  const InputHandle head(opened);
  for (size_t i = 0; i < rates.size() && i < head->nb_streams; ++i) {
    const AVRational rate = head->streams[i]->avg_frame_rate;
    if (rate.num > 0 && rate.den > 0) rates[i] = rate;
  }
  return rates;
}

}  // namespace qlnmedia
