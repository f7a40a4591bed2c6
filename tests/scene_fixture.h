// A scene of a few primitives, built and rendered through the exports.

#pragma once

#include "base/vector.h"
#include "hv.h"
#include "hvx.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace hv {

/// Starts the library, silent and with fixed random numbers, and shuts it down again. The sky has the colour 1; no photons
/// are cast and no density cells are in use. One camera looks from (0, -2, 0) along +y, with z up, through so small an
/// angle that all rays of a pixel are one.
class TestScene {
public:
    explicit TestScene(int frames = 4, int width = 1, int height = 1)
        : frames_(frames), pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
    {
        hvxSetReport(false);
        hvxSetSeed(1);
        hvStartup();
        hvSetRendererDistance(0);
        hvSetRendererBounce(1);
        hvSetSkyLightColor(1, 1, 1);
        hvSetSkyLightPhoton(0);
        hvSetGeometryLightPhoton(0);
        hvAddCamera();
        hvSetCameraResolution(0, width, height);
        hvSetCameraSample(0, frames);
        hvSetCameraAOVName(0, 0, "");  // no picture is written
        LookFrom({0, -2, 0}, {0, 0, 0}, 0.01f);
        hvAddObject();
    }

    ~TestScene()
    {
        hvFinalize();
        hvShutdown();
        hvxClearSeed();
        hvxSetReport(true);
    }

    TestScene(const TestScene&)            = delete;
    TestScene& operator=(const TestScene&) = delete;

    void LookFrom(Vector position, Vector target, float degrees)
    {
        hvSetCameraPosition(0, position.x, position.y, position.z);
        hvSetCameraTarget(0, target.x, target.y, target.z);
        hvSetCameraFOV(0, degrees);
    }

    /// A shader of one layer, of which one slot is set.
    int AddShader(Element element, Color color, Material material = Material::Conductor, float ior = 1.0f)
    {
        const int  shader = hvAddShader();
        const auto name   = std::to_string(shader);  // faces of an unnamed one fall to the part's last shader
        hvSetShaderName(shader, name.c_str());
        hvAddSurfaceShader(shader);
        hvSetSurfaceMaterial(shader, 0, material);
        SetSlot(shader, element, color);
        SetSlot(shader, Element::Ior, kWhite * ior);
        return shader;
    }

    void SetSlot(int shader, Element element, Color color)
    {
        hvSetSurfaceColor(shader, 0, element, color.r, color.g, color.b);
    }

    /// A ball from one particle. One a scene: rays tell primitives apart by kind and index only.
    void AddBall(int shader, float radius = 1.0f)
    {
        const int   part      = hvAddPart(0);
        const float centre[3] = {0, 0, 0};
        const int   vertex    = 0;
        hvSetShaderID(0, part, shader);
        hvAddPositions(0, part, 1, centre);
        hvAddRadii(0, part, 1, &radius);
        hvAddParticles(0, part, 1, &vertex);
    }

    /// A planar tetragon, counter-clockwise seen from its front. All tetragons of a scene lie in one part.
    void AddQuad(int shader, std::initializer_list<Vector> corners)
    {
        if (quad_part_ < 0) quad_part_ = hvAddPart(0);
        hvSetShaderID(0, quad_part_, shader);
        int       indices[4] = {};
        const int first      = 4 * quad_count_++;
        for (int i = 0; i < 4; ++i) indices[i] = first + i;
        for (const Vector& corner : corners) hvAddPositions(0, quad_part_, 1, &corner.x);
        hvAddTetragons(0, quad_part_, 1, indices);
    }

    /// A square in the plane y = `y` that faces the camera.
    void AddScreen(int shader, float y = 0.0f, float half = 10.0f)
    {
        AddQuad(shader, {{-half, y, -half}, {half, y, -half}, {half, y, half}, {-half, y, half}});
    }

    /// An axis-aligned box whose faces look outwards.
    void AddBox(int shader, Vector a, Vector b)
    {
        AddQuad(shader, {{a.x, a.y, a.z}, {b.x, a.y, a.z}, {b.x, a.y, b.z}, {a.x, a.y, b.z}});
        AddQuad(shader, {{b.x, b.y, a.z}, {a.x, b.y, a.z}, {a.x, b.y, b.z}, {b.x, b.y, b.z}});
        AddQuad(shader, {{a.x, b.y, a.z}, {a.x, a.y, a.z}, {a.x, a.y, b.z}, {a.x, b.y, b.z}});
        AddQuad(shader, {{b.x, a.y, a.z}, {b.x, b.y, a.z}, {b.x, b.y, b.z}, {b.x, a.y, b.z}});
        AddQuad(shader, {{a.x, b.y, a.z}, {b.x, b.y, a.z}, {b.x, a.y, a.z}, {a.x, a.y, a.z}});
        AddQuad(shader, {{a.x, a.y, b.z}, {b.x, a.y, b.z}, {b.x, b.y, b.z}, {a.x, b.y, b.z}});
    }

    /// Prepares the scene and renders all frames: the mean of each pixel. Once a scene.
    std::vector<Color> Render()
    {
        hvInitialize();
        std::vector<Color> frame(pixels_), sum(pixels_);
        for (int i = 0; i < frames_; ++i) {
            hvRenderPixels(static_cast<int>(pixels_), &frame[0].r, i);
            for (std::size_t p = 0; p < pixels_; ++p) sum[p] += frame[p];
        }
        for (Color& pixel : sum) pixel *= 1.0f / static_cast<float>(frames_);
        return sum;
    }

    /// The mean of the first pixel.
    Color RenderPixel() { return Render()[0]; }

private:
    int         frames_;
    std::size_t pixels_;
    int         quad_part_ = -1, quad_count_ = 0;
};

/// Compares channel by channel.
inline void ExpectColor(Color actual, Color expected, float tolerance)
{
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(actual[c], expected[c], tolerance) << "channel " << c;
}

}  // namespace hv
