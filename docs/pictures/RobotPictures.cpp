// Draws the simulated robot in its postures: robot_pictures FOLDER writes postures.png and
// robot.png.
//
// Each posture is put down and left to itself for some seconds, so that what is seen is how the
// robot really lies, sits or stands.

#include "devices/sim/Physics.h"
#include "devices/sim/Postures.h"
#include "devices/sim/RobotModel.h"
#include "messages/keys/DeviceKeys.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <fstream>
#include <memory>
#include <mujoco/mujoco.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using gk::devices::Physics;
using gk::devices::Posture;

constexpr int kChannels = 3;
constexpr double kTimeToRest = 3; // s

struct Picture {
  int width;
  int height;
  std::vector<unsigned char> pixels; // from the top, rows of red, green, blue

  Picture(int w, int h)
      : width(w), height(h), pixels(static_cast<std::size_t>(w) * h * kChannels, 255) {}

  void paste(const Picture& part, int x, int y) {
    for (int row = 0; row < part.height; ++row) {
      const auto* from =
          part.pixels.data() + static_cast<std::size_t>(row) * part.width * kChannels;
      auto* to = pixels.data() + (static_cast<std::size_t>(y + row) * width + x) * kChannels;
      std::copy_n(from, part.width * kChannels, to);
    }
  }
};

/// PNG: signature, header, one block of zlib data, end. https://www.w3.org/TR/png/
void writePng(const Picture& picture, const std::string& path) {
  std::string raw;
  for (int row = 0; row < picture.height; ++row) {
    raw += '\0';
    const auto* line =
        picture.pixels.data() + static_cast<std::size_t>(row) * picture.width * kChannels;
    raw.append(reinterpret_cast<const char*>(line),
               static_cast<std::size_t>(picture.width) * kChannels);
  }
  uLongf size = compressBound(raw.size());
  std::string packed(size, '\0');
  compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
            reinterpret_cast<const Bytef*>(raw.data()), raw.size(), Z_BEST_COMPRESSION);
  packed.resize(size);

  const auto number = [](std::uint32_t value) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
      text += static_cast<char>(value >> static_cast<unsigned>(shift) & 0xffU);
    }
    return text;
  };
  const auto block = [&number](const std::string& type, const std::string& data) {
    const std::string body = type + data;
    const uLong check =
        crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    return number(static_cast<std::uint32_t>(data.size())) + body +
           number(static_cast<std::uint32_t>(check));
  };
  const std::string header = number(static_cast<std::uint32_t>(picture.width)) +
                             number(static_cast<std::uint32_t>(picture.height)) +
                             std::string("\x08\x02\0\0\0", 5);
  std::ofstream(path, std::ios::binary)
      << "\x89PNG\r\n\x1a\n"
      << block("IHDR", header) << block("IDAT", packed) << block("IEND", "");
}

/// OpenGL without a display.
void makeContext() {
  const auto getDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
      eglGetProcAddress("eglGetPlatformDisplayEXT"));
  const EGLDisplay display =
      getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  constexpr std::array<EGLint, 9> wanted = {EGL_SURFACE_TYPE,
                                            EGL_PBUFFER_BIT,
                                            EGL_RENDERABLE_TYPE,
                                            EGL_OPENGL_BIT,
                                            EGL_DEPTH_SIZE,
                                            24,
                                            EGL_STENCIL_SIZE,
                                            8,
                                            EGL_NONE};
  EGLConfig config = nullptr;
  EGLint count = 0;
  if (eglInitialize(display, nullptr, nullptr) == EGL_FALSE ||
      eglChooseConfig(display, wanted.data(), &config, 1, &count) == EGL_FALSE || count == 0 ||
      eglBindAPI(EGL_OPENGL_API) == EGL_FALSE) {
    throw std::runtime_error("no OpenGL without a display");
  }
  const EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
}

class Studio {
public:
  Studio() {
    const auto files = std::make_unique<mjVFS>();
    mj_defaultVFS(files.get());
    const std::size_t size = std::strlen(gk::devices::kRobotModel);
    mj_makeEmptyFileVFS(files.get(), "robot.xml", static_cast<int>(size));
    std::memcpy(files->filedata[0], gk::devices::kRobotModel, size);
    std::array<char, 1000> error{};
    fModel = mj_loadXML("robot.xml", files.get(), error.data(), static_cast<int>(error.size()));
    if (fModel == nullptr) {
      throw std::runtime_error(error.data());
    }
    fModel->opt.timestep = Physics::kStep;
    fData = mj_makeData(fModel);
    mjv_defaultScene(&fScene);
    mjv_defaultOption(&fOption);
    mjv_defaultCamera(&fCamera);
    mjr_defaultContext(&fContext);
    mjv_makeScene(fModel, &fScene, 1000);
    mjr_makeContext(fModel, &fContext, 100);
    mjr_setBuffer(mjFB_OFFSCREEN, &fContext);
  }

  Picture take(const Posture& posture, int width, int height, double azimuth) {
    pose(posture);
    fCamera.type = mjCAMERA_FREE;
    const mjtNum* centre = fData->subtree_com + 3 * mj_name2id(fModel, mjOBJ_BODY, "Torso");
    fCamera.lookat[0] = centre[0];
    fCamera.lookat[1] = centre[1];
    fCamera.lookat[2] = 0.2;
    fCamera.distance = 0.95;
    fCamera.azimuth = azimuth;
    fCamera.elevation = -16;
    const mjrRect frame = {0, 0, width, height};
    mjv_updateScene(fModel, fData, &fOption, nullptr, &fCamera, mjCAT_ALL, &fScene);
    mjr_render(frame, &fScene, &fContext);
    Picture picture(width, height);
    mjr_readPixels(picture.pixels.data(), nullptr, frame, &fContext);
    // OpenGL counts rows from below.
    for (int row = 0; row < height / 2; ++row) {
      auto* above = picture.pixels.data() + static_cast<std::size_t>(row) * width * kChannels;
      auto* below =
          picture.pixels.data() + static_cast<std::size_t>(height - 1 - row) * width * kChannels;
      std::swap_ranges(above, above + static_cast<std::size_t>(width) * kChannels, below);
    }
    return picture;
  }

private:
  void pose(const Posture& posture) {
    mj_resetData(fModel, fData);
    // The obstacles are not asked for.
    fData->mocap_pos[1] = 50;
    fData->mocap_pos[4] = -50;
    const auto attitude = posture.attitude();
    fData->qpos[2] = fPhysics.restHeight(posture.angles, attitude);
    std::ranges::copy(attitude, fData->qpos + 3);
    for (std::size_t i = 0; i < posture.angles.size(); ++i) {
      const std::string name(gk::messages::jointNames()[i]);
      const int joint = mj_name2id(fModel, mjOBJ_JOINT, name.c_str());
      fData->qpos[fModel->jnt_qposadr[joint]] = posture.angles[i];
      fData->ctrl[mj_name2id(fModel, mjOBJ_ACTUATOR, name.c_str())] = posture.angles[i];
    }
    while (fData->time < kTimeToRest) {
      mj_step(fModel, fData);
    }
  }

  Physics fPhysics;
  mjModel* fModel = nullptr;
  mjData* fData = nullptr;
  mjvScene fScene{};
  mjvOption fOption{};
  mjvCamera fCamera{};
  mjrContext fContext{};
};

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: robot_pictures FOLDER\n", stderr);
    return 2;
  }
  const std::string folder = argv[1];
  constexpr int columns = 5;
  constexpr int width = 320;
  constexpr int height = 300;
  constexpr double fromTheFront = 145;
  makeContext();
  Studio studio;
  const auto all = gk::devices::postures();
  const int rows = (static_cast<int>(all.size()) + columns - 1) / columns;
  Picture sheet(columns * width, rows * height);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const int place = static_cast<int>(i);
    sheet.paste(studio.take(all[i], width, height, fromTheFront), place % columns * width,
                place / columns * height);
  }
  writePng(sheet, folder + "/postures.png");
  writePng(studio.take(all[0], 640, 600, fromTheFront), folder + "/robot.png");
  return 0;
}
