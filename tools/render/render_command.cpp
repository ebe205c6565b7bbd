// `meshcore render`: reads a file and writes a picture of it.
#include "tools/tool.h"

#include "tools/render/png_writer.h"
#include "tools/render/scene_renderer.h"

#include "meshcore/scene/scene.h"

#include <cctype>
#include <charconv>
#include <string_view>

namespace meshcore::tool {

namespace {

int RenderFail(Output& output, const std::string& text, int status) {
  std::lock_guard lock(ErrorStreamMutex());
  ClearProgressLine(output);
  output.lastError = text;
  output.lastDetail.clear();
  std::fprintf(output.err, "meshcore: %s\n", text.c_str());
  return status;
}

bool ParseInt(std::string_view text, int& value) {
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && ptr == text.data() + text.size() && !text.empty();
}

bool ParseSize(std::string_view text, int& width, int& height) {
  const std::size_t x = text.find_first_of("xX");
  return x != std::string_view::npos && ParseInt(text.substr(0, x), width) &&
         ParseInt(text.substr(x + 1), height) && width >= 1 && height >= 1 &&
         width <= render::CSceneRenderer::kMaxSide && height <= render::CSceneRenderer::kMaxSide;
}

bool ParseColour(std::string_view text, std::uint32_t& colour) {
  if (!text.empty() && text[0] == '#')
    text.remove_prefix(1);
  if (text.size() != 6)
    return false;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + 6, colour, 16);
  return ec == std::errc() && ptr == text.data() + 6;
}

bool EndsWithPng(const std::string& name) {
  if (name.size() < 4)
    return false;
  std::string ext = name.substr(name.size() - 4);
  for (char& c : ext)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".png";
}

} // namespace

int RunRender(Output& output, const std::vector<std::string>& args, const SceneReader& read) {
  render::RenderOptions options;
  std::vector<std::string> files;
  bool upGiven = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
      files.push_back(arg);
      continue;
    }
    // --name VALUE or --name=VALUE.
    const std::size_t equals = arg.find('=');
    const std::string name = arg.substr(0, equals);
    auto value = [&](std::string& out) {
      if (equals != std::string::npos) {
        out = arg.substr(equals + 1);
        return true;
      }
      if (i + 1 >= args.size())
        return false;
      out = args[++i];
      return true;
    };
    std::string text;
    if (name == "--wire" && equals == std::string::npos) {
      options.wire = true;
    } else if (name == "--size") {
      if (!value(text) || !ParseSize(text, options.width, options.height))
        return RenderFail(output,
                          "--size needs WIDTHxHEIGHT, each from 1 to " +
                              std::to_string(render::CSceneRenderer::kMaxSide),
                          kExitUsage);
    } else if (name == "--view") {
      if (!value(text) || !render::ParseViewDirection(text, options.view))
        return RenderFail(output, "--view needs iso, front, back, left, right, top or bottom",
                          kExitUsage);
    } else if (name == "--up") {
      if (!value(text) || !render::ParseUpAxis(text, options.up))
        return RenderFail(output, "--up needs y or z", kExitUsage);
      upGiven = true;
    } else if (name == "--background") {
      if (!value(text) || !ParseColour(text, options.background))
        return RenderFail(output, "--background needs a colour as RRGGBB (hexadecimal)",
                          kExitUsage);
    } else {
      return RenderFail(output, "unknown option '" + arg + "'", kExitUsage);
    }
  }
  if (files.size() != 2)
    return RenderFail(output,
                      "render needs an input file and an output picture (see meshcore --help)",
                      kExitUsage);
  const std::string& in = files[0];
  const std::string& out = files[1];
  if (!upGiven)
    options.up = render::UpAxisOfFile(in);
  if (!EndsWithPng(out))
    return RenderFail(output, out + ": render writes PNG pictures; name the output *.png",
                      kExitUsage);

  int status = kExitOk;
  std::unique_ptr<C3DScene> scene = read(in, status);
  if (!scene)
    return status;
  options.sourceFile = in;
  render::CSceneRenderer renderer(options);
  render::CImage image;
  std::string error;
  if (!renderer.Render(*scene, image, error))
    return RenderFail(output, in + ": " + error, kExitFailure);
  if (!output.silent) {
    std::lock_guard lock(ErrorStreamMutex());
    ClearProgressLine(output);
    for (const std::string& warning : renderer.GetWarnings())
      std::fprintf(output.err, "meshcore: %s: %s\n", in.c_str(), warning.c_str());
  }
  if (!render::CPngWriter::WriteFile(image, out, error))
    return RenderFail(output, out + ": " + error, kExitCannotOpen);
  if (!output.silent)
    std::fprintf(output.out, "%s -> %s: %d x %d\n", in.c_str(), out.c_str(), image.GetWidth(),
                 image.GetHeight());
  return kExitOk;
}

} // namespace meshcore::tool
