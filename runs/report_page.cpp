#include "runs/report_page.h"

#include <algorithm>

#include "platform/utility/checksums.h"
#include "runs/options.h"
#include "runs/report_assets.h"
#include "runs/report_charts.h"
#include "runs/report_markup.h"
#include "runs/report_tables.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// A source that a browser lets in by the hash of its text.
std::string HashSource(const std::string& text) {
  platform::Sha256 hash;
  hash.Add(text.data(), text.size());
  const std::string digits = hash.Text();
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return "'sha256-" + Base64(bytes) + "'";
}

std::string TitleOf(const ReportContents& c) {
  if (!c.request.title.empty()) return c.request.title;
  std::string title = "Fusion report: ";
  if (c.sources.size() == 1) return title + c.sources[0].label;
  return title + std::to_string(c.sources.size()) + " images";
}

std::string Size(const CRect& rect) {
  return std::to_string(rect.Width()) + " \xC3\x97 " + std::to_string(rect.Height());
}

/// What a view shows, of which pixels.
std::string Caption(const ReportView& view) {
  std::string text = view.title + ": " + Size(view.rect) + " pixels of pan at " + std::to_string(view.rect.left) +
                     ", " + std::to_string(view.rect.top);
  if (view.width < view.rect.Width())
    text += ", reduced to " + std::to_string(view.width) + " \xC3\x97 " + std::to_string(view.height);
  return text;
}

std::string PictureOf(const ReportView& view, std::size_t index, const std::string& layer, const std::string& label) {
  // What a browser says of an image that is not seen.
  const std::string words = label + ", " + view.title;
  const std::string image = Element("img",
                                    {{"src", "data:image/jpeg;base64," + Base64(view.pictures[index])},
                                     {"width", std::to_string(view.width)},
                                     {"height", std::to_string(view.height)},
                                     {"alt", words}},
                                    "");
  // It has no end of its own.
  return Element("figure", {{"class", "picture"}, {"data-layer", layer}, {"data-label", label}},
                 image.substr(0, image.size() - std::string("</img>").size()) + TextElement("figcaption", label)) +
         '\n';
}

std::string Gallery(const ReportContents& c) {
  std::string markup;
  for (std::size_t f = 0; f < c.frames.size(); ++f) {
    const ReportFrame& frame = c.frames[f];
    for (const ReportView& view : frame.views) {
      std::string figures = PictureOf(view, 0, "pan", "pan") + PictureOf(view, 1, "ms", "multispectral");
      for (std::size_t i = 0; i < frame.images.size(); ++i) {
        const std::string own = frame.onBandScale[i] ? "" : " (stretched by itself)";
        figures += PictureOf(view, i + 2, std::to_string(frame.images[i]), c.sources[frame.images[i]].label + own);
      }
      const double scale = static_cast<double>(view.rect.Width()) / view.width;
      markup += Element("div",
                        {{"class", "sheet"},
                         {"data-frame", std::to_string(f)},
                         {"data-title", view.title},
                         {"data-width", std::to_string(view.width)},
                         {"data-height", std::to_string(view.height)},
                         {"data-scale", Formatted("%.6g", scale)}},
                        TextElement("h3", Caption(view)) + Element("div", {{"class", "pictures"}}, '\n' + figures)) +
                '\n';
    }
  }
  return markup;
}

std::string List(const std::vector<std::pair<std::string, std::string>>& facts) {
  std::string markup;
  for (const auto& [name, text] : facts) {
    if (!text.empty()) markup += TextElement("dt", name) + TextElement("dd", text) + '\n';
  }
  return Element("dl", markup);
}

std::string Numbers(const std::vector<double>& values) {
  std::string text;
  for (const double value : values) text += (text.empty() ? "" : ", ") + NumberText(value);
  return text;
}

/// What an image tells of how it was made.
std::string HowMade(const FusedSource& source) {
  if (!source.provenance) return TextElement("p", "The file does not tell how it was made.");
  const Provenance& told = *source.provenance;
  std::string inputs;
  for (const ProvenanceInput& input : told.inputs) {
    inputs += (inputs.empty() ? "" : "; ") + input.role + " " + input.path;
    if (!input.size.empty()) inputs += " (" + input.size + ")";
  }
  std::vector<std::pair<std::string, std::string>> facts = {
      {"method", told.method},  {"options", told.options.empty() ? "all as by default" : told.options},
      {"guards", told.guards},  {"made of", inputs},
      {"output", told.output},  {"time", told.time},
      {"version", told.version}};
  for (const ModelFact& fact : told.model) {
    std::string name = fact.name;
    std::replace(name.begin(), name.end(), '_', ' ');
    facts.emplace_back(name, Numbers(fact.values));
  }
  return List(facts);
}

std::string HistogramsOf(const std::vector<ReportHistogram>& histograms) {
  std::string charts;
  for (const ReportHistogram& histogram : histograms) charts += HistogramChart(histogram) + '\n';
  return charts;
}

std::string ImageSection(const ReportContents& c, std::size_t i) {
  const FusedSource& source = c.sources[i];
  const ReportImage& image = c.report.images[i];
  std::string quality;
  if (!image.notMeasured.empty()) {
    quality = TextElement("p", "Quality without a reference could not be measured: " + image.notMeasured,
                          {{"class", "missing"}});
  }
  const std::string evaluation =
      image.notEvaluated.empty()
          ? MetricTables(image.evaluation)
          : TextElement("p", "It could not be evaluated: " + image.notEvaluated, {{"class", "missing"}});
  const std::string charts =
      c.histograms[i].empty()
          ? TextElement("p", "There are no pairs of bands to compare. " + source.unpaired, {{"class", "missing"}})
          : HistogramsOf(c.histograms[i]);
  return Fill(ReportAsset("image.html"),
              {{"id", "image-" + std::to_string(i + 1)},
               {"label", Escaped(image.label)},
               {"file", Escaped(image.file)},
               {"place", Escaped(Size(source.onPan) + " pixels at " + std::to_string(source.onPan.left) + ", " +
                                 std::to_string(source.onPan.top) + " of pan")},
               {"made", HowMade(source)},
               {"histograms", charts},
               {"quality", quality},
               {"evaluation", evaluation}});
}

/// A command of the program on this report's inputs.
std::string CommandOf(const ReportContents& c, const std::string& name, const std::vector<std::string>& images,
                      const std::vector<std::string>& more) {
  std::vector<std::string> words = {"fusion", name, c.request.pan};
  if (name == "report" && c.msFiles.size() > 1) {
    for (const std::string& file : c.msFiles) words.insert(words.end(), {"--ms", file});
  } else {
    words.insert(words.end(), c.msFiles.begin(), c.msFiles.end());
  }
  words.insert(words.end(), images.begin(), images.end());
  words.insert(words.end(), more.begin(), more.end());
  return CommandLine(words);
}

std::string Commands(const ReportContents& c) {
  std::string lines;
  const auto add = [&lines](const std::string& text) { lines += text + '\n'; };
  std::vector<std::string> own = {"-o", c.request.out};
  const std::vector<std::string> options = ArgumentsOf(c.request);
  own.insert(own.end(), options.begin(), options.end());
  add(CommandOf(c, "check", {}, {}));
  for (const FusedSource& source : c.sources) {
    const std::string command = source.provenance ? RepeatCommand(*source.provenance, source.file) : "";
    if (!command.empty()) {
      add(command);
    } else if (source.provenance) {
      add("# " + source.file + " was made of arrays.");
    } else {
      add("# " + source.file + " does not tell how it was made.");
    }
  }
  for (const FusedSource& source : c.sources) add(CommandOf(c, "evaluate", {source.file}, {}));
  add(CommandOf(c, "report", c.request.fused, own));
  return TextElement("pre", lines, {{"tabindex", "0"}, {"aria-label", "Commands"}});
}

std::string Contents(const ReportContents& c) {
  std::string links;
  for (std::size_t i = 0; i < c.sources.size(); ++i) {
    links += TextElement("a", c.sources[i].label, {{"href", "#image-" + std::to_string(i + 1)}}) + '\n';
  }
  return links;
}

std::string Inputs(const ReportContents& c) {
  std::string ms;
  for (const std::string& file : c.msFiles) ms += (ms.empty() ? "" : ", ") + file;
  return List({{"pan", c.request.pan}, {"multispectral", ms}});
}

}  // namespace

std::string MakePage(const ReportContents& c) {
  const std::string style = ReportAsset("page.css");
  const std::string script = ReportAsset("page.js");
  std::string images;
  for (std::size_t i = 0; i < c.sources.size(); ++i) images += ImageSection(c, i);
  std::string notices;
  for (const std::string& notice : c.report.notices) notices += TextElement("li", notice);
  if (!notices.empty()) notices = Element("ul", {{"class", "findings"}}, notices);
  const auto warnings = std::count_if(c.report.check.findings.begin(), c.report.check.findings.end(),
                                      [](const CheckFinding& finding) { return finding.isWarning; });
  const std::string verdict = warnings == 0   ? "Nothing stood against fusing the inputs."
                              : warnings == 1 ? "There is a warning about the inputs."
                                              : "There are " + std::to_string(warnings) + " warnings about the inputs.";
  return Fill(ReportAsset("page.html"), {{"policy", "default-src 'none'; img-src data:; style-src " +
                                                        HashSource(style) + "; script-src " + HashSource(script)},
                                         {"title", Escaped(TitleOf(c))},
                                         {"style", style},
                                         {"script", script},
                                         {"version", FUSION_VERSION},
                                         {"links", Contents(c)},
                                         {"files", Inputs(c)},
                                         {"verdict", Escaped(verdict)},
                                         {"gallery", Gallery(c)},
                                         {"summary", SummaryTable(c.report.images)},
                                         {"findings", FindingList(c.report.check) + notices},
                                         {"inputs", InputTables(c.report.check)},
                                         {"images", images},
                                         {"commands", Commands(c)}});
}

}  // namespace fusion
