"""Builds a Blender scene from a folder of Orlix results: OpenVDB volumes, PLY meshes and PLY particles, each a sequence.

    blender --python import_orlix.py -- FOLDER [--fps 24] [--save scene.blend]
    blender --background --python import_orlix.py -- FOLDER --render picture.png --frame 40 --size 640x360 --samples 32

Lengths become metres and z points upwards, by what the files say of themselves; --metres and --up are for files that say
nothing. Results of frame 12 are shown at frame 12. Volumes get a smoke and fire shader, meshes water (--look water, clay),
particles small spheres. What is shown and rendered is loaded as the frame changes; a saved scene does so after it was
opened, where Blender is allowed to run the text in it (Preferences > Save & Load > Auto Run Python Scripts).
Written for Blender 3.4 and later.
"""

import argparse
import mmap
import pathlib
import re
import struct
import sys

import bpy
import mathutils
import numpy

KEY = "orlix_files"  # on an object: "FOLDER/NAME.", whose files follow the frame
TYPES = {"char": "i1", "uchar": "u1", "short": "i2", "ushort": "u2", "int": "i4", "uint": "u4", "float": "f4",
         "double": "f8", "int8": "i1", "uint8": "u1", "int16": "i2", "uint16": "u2", "int32": "i4", "uint32": "u4",
         "float32": "f4", "float64": "f8"}


# --- files -----------------------------------------------------------------------------------------------------------

def sequences(folder, ending):
    """Name -> {frame: path} of files NAME.0001.ENDING."""
    found = {}
    for path in sorted(pathlib.Path(folder).iterdir()):
        match = re.fullmatch(r"(.+)\.(-?\d+)\." + ending, path.name)
        if match:
            found.setdefault(match[1], {})[int(match[2])] = path
    return found


def ply_header(data):
    """Elements as (name, count, [(property, type, count type)]), the units, and where the header ends."""
    end = data.index(b"end_header\n") + len(b"end_header\n")
    elements, units = [], {}
    for line in data[:end].decode("ascii", "replace").splitlines():
        words = line.split()
        if words[:1] == ["format"] and words[1] != "binary_little_endian":
            raise ValueError("only PLY files of Orlix are read: binary_little_endian")
        if words[:1] == ["comment"] and len(words) == 3:
            units[words[1]] = words[2]
        if words[:1] == ["element"]:
            elements.append((words[1], int(words[2]), []))
        if words[:1] == ["property"]:
            counted = words[1] == "list"
            elements[-1][2].append((words[-1], TYPES[words[3 if counted else 1]], TYPES[words[2]] if counted else None))
    return elements, units, end


def read_ply(path):
    """Points as an array with fields, corners of all faces, the number of corners of each face."""
    data = path.read_bytes()
    elements, _, at = ply_header(data)
    points, corners, counts = None, numpy.zeros(0, "i4"), numpy.zeros(0, "i4")
    for name, count, properties in elements:
        if name == "vertex":
            kind = numpy.dtype([(n, "<" + t) for n, t, _ in properties])
            points = numpy.frombuffer(data, kind, count, at)
            at += count * kind.itemsize
        elif name == "face" and count:
            corners, counts = read_faces(data, at, count)
    return points, corners, counts


def read_faces(data, at, count):
    """Faces are mostly of one kind, whose run is read at once."""
    corners, counts = [], []
    while count:
        size = data[at]
        kind = numpy.dtype([("n", "u1"), ("c", "<i4", (size,))])
        run = numpy.frombuffer(data, kind, min(count, (len(data) - at) // kind.itemsize), at)
        others = numpy.flatnonzero(run["n"] != size)
        run = run[:others[0]] if len(others) else run
        corners.append(run["c"].ravel())
        counts.append(numpy.full(len(run), size, "i4"))
        at += len(run) * kind.itemsize
        count -= len(run)
    return numpy.concatenate(corners), numpy.concatenate(counts)


def units_of(path):
    """Metres a unit and the upward axis, as a file says; None for what it doesn't."""
    with open(path, "rb") as file:
        head = file.read(1 << 16)
    if path.suffix == ".ply":
        _, units, _ = ply_header(head)
        metres = units.get("metres_per_unit")
        return float(metres) if metres else None, units.get("up_axis")
    # OpenVDB keeps metadata as a counted name, a counted type, a size and the value.
    metres = up = None
    at = head.find(b"metres_per_unit\x06\0\0\0double\x08\0\0\0")
    if at >= 0:
        metres = struct.unpack_from("<d", head, at + 15 + 4 + 6 + 4)[0]
    at = head.find(b"up_axis\x06\0\0\0string\x01\0\0\0")
    if at >= 0:
        up = chr(head[at + 7 + 4 + 6 + 4])
    return metres, up


# --- what follows the frame ------------------------------------------------------------------------------------------

def file_at(prefix, ending, frame):
    """The frame's file, or the last before it."""
    folder, name = str(pathlib.Path(prefix).parent), pathlib.Path(prefix).name
    files = sequences(folder, ending).get(name.rstrip("."), {})
    before = [f for f in files if f <= frame]
    return files[max(before)] if before else None


def load_frame(obj, frame):
    path = file_at(obj[KEY], "ply", frame)
    mesh = obj.data
    mesh.clear_geometry()
    if path is None:
        return
    points, corners, counts = read_ply(path)
    mesh.vertices.add(len(points))
    flat = numpy.empty((len(points), 3), "f4")
    for axis in range(3):
        flat[:, axis] = points["xyz"[axis]]
    mesh.vertices.foreach_set("co", flat.ravel())
    if len(counts):
        mesh.loops.add(len(corners))
        mesh.polygons.add(len(counts))
        mesh.loops.foreach_set("vertex_index", corners)
        mesh.polygons.foreach_set("loop_start", numpy.concatenate(([0], numpy.cumsum(counts)[:-1])).astype("i4"))
        mesh.polygons.foreach_set("loop_total", counts)
        mesh.polygons.foreach_set("use_smooth", numpy.ones(len(counts), bool))
    add_attributes(mesh, points)
    mesh.update(calc_edges=True)
    if mesh.materials and len(counts):
        mesh.polygons.foreach_set("material_index", numpy.zeros(len(counts), "i4"))


def add_attribute(mesh, name, kind, field, values):
    attribute = mesh.attributes.get(name) or mesh.attributes.new(name, kind, "POINT")
    if attribute and attribute.data_type == kind:  # some names are Blender's own
        attribute.data.foreach_set(field, values)


def add_attributes(mesh, points):
    names = points.dtype.names
    vectors = {"velocity": ("vx", "vy", "vz"), "color": ("red", "green", "blue")}
    for name, parts in vectors.items():
        if all(part in names for part in parts):
            values = numpy.stack([points[part] for part in parts], axis=1).astype("f4")
            add_attribute(mesh, name, "FLOAT_VECTOR", "vector", values.ravel())
    taken = {"x", "y", "z", "nx", "ny", "nz", "id"}.union(*vectors.values())
    for name in names:
        if name not in taken:
            add_attribute(mesh, name, "FLOAT", "value", points[name].astype("f4"))


def follow_frame(scene, _graph=None):
    for obj in scene.objects:
        if KEY not in obj:
            continue
        if obj.type == "MESH":
            load_frame(obj, scene.frame_current)
        elif obj.type == "VOLUME":
            path = file_at(obj[KEY], "vdb", scene.frame_current)
            obj.data.filepath = str(path) if path else ""


def register_handler():
    handlers = bpy.app.handlers.frame_change_pre
    for handler in [h for h in handlers if h.__name__ == "follow_frame"]:
        handlers.remove(handler)
    handlers.append(bpy.app.handlers.persistent(follow_frame))


# --- looks -----------------------------------------------------------------------------------------------------------

def new_material(name):
    material = bpy.data.materials.new(name)
    material.use_nodes = True
    tree = material.node_tree
    tree.nodes.clear()
    return material, tree, tree.nodes.new("ShaderNodeOutputMaterial")


def has_grid(path, name):
    """OpenVDB keeps a grid's name as a counted text before its data."""
    with open(path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as data:
        return data.find(struct.pack("<I", len(name)) + name.encode()) >= 0


def smoke(hot):
    """Density as it is in the file is that of a metre; what burns glows by "flame", else by its temperature."""
    material, tree, out = new_material("Orlix smoke")
    volume = tree.nodes.new("ShaderNodeVolumePrincipled")
    volume.inputs["Color"].default_value = (0.6, 0.6, 0.62, 1)
    volume.inputs["Density"].default_value = 20
    volume.inputs["Density Attribute"].default_value = "density"
    volume.inputs["Temperature Attribute"].default_value = "temperature"
    volume.inputs["Temperature"].default_value = 1  # a factor: the files have kelvin
    volume.inputs["Blackbody Intensity"].default_value = 40 if hot else 0
    flame = tree.nodes.new("ShaderNodeAttribute")
    flame.attribute_name = "flame"
    ramp = tree.nodes.new("ShaderNodeValToRGB")
    ramp.color_ramp.elements[0].color = (0.9, 0.12, 0.01, 1)
    ramp.color_ramp.elements[1].color = (1, 0.7, 0.25, 1)
    strength = tree.nodes.new("ShaderNodeMath")
    strength.operation = "MULTIPLY"
    strength.inputs[1].default_value = 40
    tree.links.new(flame.outputs["Fac"], ramp.inputs["Fac"])
    tree.links.new(flame.outputs["Fac"], strength.inputs[0])
    tree.links.new(ramp.outputs["Color"], volume.inputs["Emission Color"])
    tree.links.new(strength.outputs[0], volume.inputs["Emission Strength"])
    tree.links.new(volume.outputs[0], out.inputs["Volume"])
    return material


def water():
    material, tree, out = new_material("Orlix water")
    surface = tree.nodes.new("ShaderNodeBsdfPrincipled")
    surface.inputs["Base Color"].default_value = (0.75, 0.92, 0.97, 1)
    surface.inputs["Roughness"].default_value = 0.02
    surface.inputs["IOR"].default_value = 1.33
    # Its name changed in Blender 4.
    surface.inputs["Transmission" if "Transmission" in surface.inputs else "Transmission Weight"].default_value = 1
    tree.links.new(surface.outputs[0], out.inputs["Surface"])
    return material


def plain(name, colour):
    material, tree, out = new_material(name)
    surface = tree.nodes.new("ShaderNodeBsdfPrincipled")
    surface.inputs["Base Color"].default_value = (*colour, 1)
    surface.inputs["Roughness"].default_value = 0.5
    tree.links.new(surface.outputs[0], out.inputs["Surface"])
    return material


def as_spheres(obj, material, radius):
    """Cycles draws the points of a point cloud as spheres."""
    group = bpy.data.node_groups.new("Orlix points", "GeometryNodeTree")
    if hasattr(group, "interface"):  # Blender 4
        group.interface.new_socket("Geometry", in_out="INPUT", socket_type="NodeSocketGeometry")
        group.interface.new_socket("Geometry", in_out="OUTPUT", socket_type="NodeSocketGeometry")
    else:
        group.inputs.new("NodeSocketGeometry", "Geometry")
        group.outputs.new("NodeSocketGeometry", "Geometry")
    start, end = group.nodes.new("NodeGroupInput"), group.nodes.new("NodeGroupOutput")
    points, paint = group.nodes.new("GeometryNodeMeshToPoints"), group.nodes.new("GeometryNodeSetMaterial")
    points.inputs["Radius"].default_value = radius
    paint.inputs["Material"].default_value = material
    group.links.new(start.outputs[0], points.inputs["Mesh"])
    group.links.new(points.outputs[0], paint.inputs["Geometry"])
    group.links.new(paint.outputs[0], end.inputs[0])
    obj.modifiers.new("Points", "NODES").node_group = group


# --- the scene -------------------------------------------------------------------------------------------------------

def add_object(name, data, parent, prefix=None):
    obj = bpy.data.objects.new(name, data)
    bpy.context.scene.collection.objects.link(obj)
    obj.parent = parent
    if prefix:
        obj[KEY] = str(prefix)
    return obj


def add_volumes(folder, parent, unit, wanted):
    objects = []
    for name, files in sequences(folder, "vdb").items():
        if not wanted(name):
            continue
        first, last = min(files), max(files)
        volume = bpy.data.volumes.new(name)
        volume.filepath = str(files[first])
        whole = len(files) == last - first + 1
        obj = add_object(name, volume, parent, None if whole else folder / (name + "."))
        if whole and len(files) > 1:
            # The number of the file shown is that of the scene's frame.
            volume.is_sequence = True
            volume.frame_start, volume.frame_duration, volume.frame_offset = first, len(files), first - 1
        last_file = files[last]
        hot = has_grid(last_file, "temperature") and not has_grid(last_file, "flame")
        volume.materials.append(smoke(hot))
        if has_grid(last_file, "velocity"):
            volume.velocity_grid = "velocity"
        objects.append((obj, files))
    return objects


def add_ply(folder, parent, look, radius, unit, wanted):
    objects = []
    for name, files in sequences(folder, "ply").items():
        if not wanted(name):
            continue
        head, _, _ = ply_header(files[max(files)].read_bytes())
        faces = any(element == "face" for element, _, _ in head)
        obj = add_object(name, bpy.data.meshes.new(name), parent, folder / (name + "."))
        if faces:
            obj.data.materials.append(water() if look == "water" else plain("Orlix clay", (0.5, 0.45, 0.4)))
        else:
            as_spheres(obj, plain("Orlix particles", (0.75, 0.85, 0.95)), radius / unit)
        objects.append((obj, files))
    return objects


def bounds(objects):
    """Of what is shown at the scene's frame, in its own space."""
    graph = bpy.context.evaluated_depsgraph_get()
    corners = []
    for obj, _ in objects:
        shown = obj.evaluated_get(graph)
        if obj.type == "MESH" and not len(obj.data.vertices):
            continue
        if obj.type == "MESH":
            flat = numpy.empty(3 * len(obj.data.vertices), "f4")
            obj.data.vertices.foreach_get("co", flat)
            flat = flat.reshape(-1, 3)
            low, high = flat.min(axis=0), flat.max(axis=0)
            box = [(x, y, z) for x in (low[0], high[0]) for y in (low[1], high[1]) for z in (low[2], high[2])]
        else:
            box = shown.bound_box
        corners += [shown.matrix_world @ mathutils.Vector(corner) for corner in box]
    if not corners:
        return mathutils.Vector((0, 0, 0)), 1.0, 0.0
    low = mathutils.Vector([min(c[i] for c in corners) for i in range(3)])
    high = mathutils.Vector([max(c[i] for c in corners) for i in range(3)])
    return (low + high) / 2, max((high - low).length, 1e-3), low.z


def add_floor(centre, size, low):
    mesh = bpy.data.meshes.new("Floor")
    wide = 20 * size
    mesh.from_pydata([(centre.x + x * wide, centre.y + y * wide, low - 0.002 * size) for x, y in
                      ((-1, -1), (1, -1), (1, 1), (-1, 1))], [], [(0, 1, 2, 3)])
    material, tree, out = new_material("Orlix floor")
    surface, tiles = tree.nodes.new("ShaderNodeBsdfDiffuse"), tree.nodes.new("ShaderNodeTexChecker")
    place = tree.nodes.new("ShaderNodeTexCoord")
    tiles.inputs["Scale"].default_value = 6 / size
    tiles.inputs["Color1"].default_value, tiles.inputs["Color2"].default_value = (0.5, 0.47, 0.42, 1), (0.3, 0.29, 0.27, 1)
    tree.links.new(place.outputs["Object"], tiles.inputs["Vector"])
    tree.links.new(tiles.outputs["Color"], surface.inputs["Color"])
    tree.links.new(surface.outputs[0], out.inputs["Surface"])
    mesh.materials.append(material)
    add_object("Floor", mesh, None)


def add_camera_and_light(objects, scene):
    centre, size, low = bounds(objects)
    add_floor(centre, size, low)
    camera = bpy.data.cameras.new("Camera")
    camera.clip_start, camera.clip_end = size * 1e-3, size * 100
    obj = add_object("Camera", camera, None)
    away = mathutils.Vector((0.55, -1.0, 0.35)).normalized()
    obj.location = centre + away * size * 1.5
    obj.rotation_euler = away.to_track_quat("Z", "Y").to_euler()
    scene.camera = obj
    sun = bpy.data.lights.new("Sun", "SUN")
    sun.energy, sun.angle = 3, 0.05
    light = add_object("Sun", sun, None)
    light.rotation_euler = (0.7, 0.25, 0.6)
    world = bpy.data.worlds.new("Sky")
    world.use_nodes = True
    world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.35, 0.5, 0.75, 1)
    world.node_tree.nodes["Background"].inputs["Strength"].default_value = 0.5
    scene.world = world


def build(folder, options):
    folder = pathlib.Path(folder).resolve()
    scene = bpy.context.scene
    for obj in list(scene.objects):
        bpy.data.objects.remove(obj)
    names = [n.strip() for n in options.names.split(",")] if options.names else None
    wanted = (lambda name: name in names) if names else (lambda name: True)
    firsts = [files[min(files)] for ending in ("vdb", "ply") for n, files in sequences(folder, ending).items() if wanted(n)]
    if not firsts:
        sys.exit(f"{folder}: no sequences such as frame.0001.vdb or frame_Water.0001.ply")
    said = [units_of(path) for path in firsts]
    metres = options.metres or next((m for m, _ in said if m), 1.0)
    up = options.up or next((u for _, u in said if u), "y")
    root = add_object("Orlix", None, None)
    root.scale = (metres, metres, metres)
    root.rotation_euler = (numpy.pi / 2 if up == "y" else 0, 0, 0)
    objects = add_volumes(folder, root, metres, wanted)
    objects += add_ply(folder, root, options.look, options.radius, metres, wanted)
    frames = [frame for _, files in objects for frame in files]
    scene.frame_start, scene.frame_end = min(frames), max(frames)
    scene.render.fps = options.fps
    scene.render.engine = "CYCLES"
    scene.cycles.samples = options.samples
    scene.cycles.use_denoising = False
    scene.cycles.volume_bounces = 2
    width, height = options.size.split("x")
    scene.render.resolution_x, scene.render.resolution_y, scene.render.resolution_percentage = int(width), int(height), 100
    register_handler()
    scene.frame_set(max(frames) if options.frame is None else options.frame)
    follow_frame(scene)
    bpy.context.view_layer.update()
    add_camera_and_light(objects, scene)
    kinds = ", ".join(f"{obj.name} ({obj.type.lower()}, {len(files)} frames)" for obj, files in objects)
    print(f"Orlix: {kinds}; a unit is {metres:g} m, {up} is up in the files")


def keep_text():
    """So that a saved scene goes on following the frame: the script as a text that runs when the file is opened."""
    text = bpy.data.texts.load(__file__, internal=True)
    text.name = "import_orlix.py"
    text.use_module = True


def main(words):
    parser = argparse.ArgumentParser(prog="import_orlix.py", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder")
    parser.add_argument("--names", help="sequences to take, with commas between; all without it")
    parser.add_argument("--fps", type=int, default=24)
    parser.add_argument("--metres", type=float, help="metres a unit of the files")
    parser.add_argument("--up", choices=["y", "z"], help="what points upwards in the files")
    parser.add_argument("--look", choices=["water", "clay"], default="water")
    parser.add_argument("--radius", type=float, default=0.01, help="of particles, m")
    parser.add_argument("--frame", type=int)
    parser.add_argument("--size", default="1280x720")
    parser.add_argument("--samples", type=int, default=64)
    parser.add_argument("--render", help="a picture to render")
    parser.add_argument("--save", help="a .blend file to save")
    options = parser.parse_args(words)
    build(options.folder, options)
    if options.save:
        keep_text()
        bpy.ops.wm.save_as_mainfile(filepath=str(pathlib.Path(options.save).resolve()))
    if options.render:
        bpy.context.scene.render.filepath = str(pathlib.Path(options.render).resolve())
        bpy.ops.render.render(write_still=True)


if __name__ == "__main__":
    main(sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else [])
elif bpy.data.texts.get("import_orlix.py"):
    register_handler()  # as a text of an opened scene
