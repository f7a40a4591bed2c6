# make_scene FOLDER: a small sound scene for the test scripts, to be sourced: an even sky of 0.5 over a white wall that
# fills the middle of the film and faces the camera. 8 x 6 pixels, 2 frames.
make_scene() {
    local folder=$1
    mkdir -p "$folder"/{shader,render,light,camera,geometry}
    cat >"$folder/render/settings.hv" <<'END'
render
    final_gather
        distance 0
    end
end
END
    cat >"$folder/light/sky.hv" <<'END'
sky_light
    color 0.5 0.5 0.5
    photon 0
end
geometry_light
    photon 0
end
END
    cat >"$folder/camera/main.hv" <<'END'
camera
    name "main"
    resolution 8 6
    sample 2
    pose
        position 0 0 10
        target 0 0 0
        up_vector 0 1 0
        field_of_view 40
    end
end
END
    printf 'v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\nf 1 2 3 4\n' >"$folder/geometry/wall.obj"
    printf 'object\n    name wall\n    obj "geometry/wall.obj"\nend\n' >"$folder/geometry/wall.hv"
}
