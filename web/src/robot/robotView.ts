import {
  AmbientLight,
  CircleGeometry,
  Color,
  DirectionalLight,
  Fog,
  GridHelper,
  HemisphereLight,
  Mesh,
  PCFShadowMap,
  PerspectiveCamera,
  Scene,
  ShadowMaterial,
  SRGBColorSpace,
  WebGLRenderer,
} from "three";
import { themeColor } from "../ui/colors.js";
import { Drawing } from "./drawing.js";
import { Figure } from "./figure.js";
import type { Orbit } from "./orbit.js";
import { fieldOfView } from "./projection.js";
import { SonarFan } from "./sonarFan.js";

const kFloorRadius = 3;
const kShadowSize = 1024;
/** Sharper than this is not seen, and costs. */
const kMostPixelRatio = 2;

/** The scene with the robot in it, in three dimensions. */
export class RobotView extends Drawing {
  private readonly renderer: WebGLRenderer;
  private readonly scene = new Scene();
  private readonly camera = new PerspectiveCamera(32, 1, 0.05, 20);
  private readonly figure = new Figure();
  private readonly sonar = new SonarFan();
  private readonly shadow = new ShadowMaterial({ opacity: 0.2 });
  private grid = new GridHelper();
  private colors = { near: "", far: "" };

  /** Raises an Error when the browser offers no WebGL. */
  constructor(canvas: HTMLCanvasElement, orbit: Orbit) {
    super(canvas, orbit);
    this.renderer = new WebGLRenderer({ canvas, antialias: true, alpha: true });
    this.renderer.outputColorSpace = SRGBColorSpace;
    this.renderer.shadowMap.enabled = true;
    this.renderer.shadowMap.type = PCFShadowMap;
    this.camera.up.set(0, 0, 1);
    this.addLights();
    this.addFloor();
    this.scene.add(this.figure.object);
    this.figure.attach(this.sonar.object);
    this.applyTheme();
  }

  override applyTheme(): void {
    const line = new Color(themeColor("floor-line"));
    this.scene.remove(this.grid);
    this.grid.dispose();
    this.grid = new GridHelper(2 * kFloorRadius, 4 * kFloorRadius * 2, line, line);
    this.grid.rotation.x = Math.PI / 2;
    this.scene.add(this.grid);
    this.scene.fog = new Fog(new Color(themeColor("floor")), 1.6, 4.2);
    this.shadow.opacity = Number(themeColor("floor-shadow"));
    this.colors = { near: themeColor("signal"), far: themeColor("accent") };
    super.applyTheme();
  }

  override destroy(): void {
    super.destroy();
    this.renderer.dispose();
  }

  protected fit(width: number, height: number): void {
    this.renderer.setPixelRatio(Math.min(devicePixelRatio, kMostPixelRatio));
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / height;
    this.camera.fov = (fieldOfView(this.camera.aspect) * 180) / Math.PI;
    this.camera.updateProjectionMatrix();
  }

  protected paint(): void {
    const { touch, sonar } = this.state;
    this.figure.setJoints(this.motion.joints);
    this.figure.setInclination(this.motion.inclination);
    if (touch !== undefined) {
      this.figure.setTouch(touch);
    }
    this.sonar.show(this.isSonarOn);
    if (sonar !== undefined) {
      this.sonar.set(sonar, this.colors);
    }
    this.figure.place(this.hoist);
    this.camera.position.set(...this.orbit.eye);
    this.camera.lookAt(...this.orbit.target);
    this.renderer.render(this.scene, this.camera);
  }

  private addLights(): void {
    this.scene.add(new HemisphereLight(0xffffff, 0x9aa5a2, 1.7), new AmbientLight(0xffffff, 0.35));
    const sun = new DirectionalLight(0xffffff, 2.2);
    sun.position.set(1.2, 1, 2.4);
    sun.castShadow = true;
    sun.shadow.mapSize.set(kShadowSize, kShadowSize);
    Object.assign(sun.shadow.camera, {
      left: -0.8,
      right: 0.8,
      top: 0.8,
      bottom: -0.8,
      near: 0.5,
      far: 5,
    });
    sun.shadow.radius = 5;
    sun.shadow.normalBias = 0.01;
    const rim = new DirectionalLight(0xcfe8f2, 0.8);
    rim.position.set(-1.5, -1.2, 1);
    this.scene.add(sun, rim);
  }

  private addFloor(): void {
    const floor = new Mesh(new CircleGeometry(kFloorRadius, 48), this.shadow);
    floor.receiveShadow = true;
    floor.position.z = 0.0005;
    this.scene.add(floor);
  }
}
