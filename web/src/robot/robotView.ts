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
import type { RobotState } from "../model/robotState.js";
import { themeColor } from "../ui/colors.js";
import { WhileVisible } from "../ui/whileVisible.js";
import { Figure } from "./figure.js";
import { Orbit } from "./orbit.js";
import { Pace } from "./pace.js";
import { SonarFan } from "./sonarFan.js";

const kFieldOfView = 32;
const kNarrower = 1.2;
const kFloorRadius = 3;
const kShadowSize = 1024;
/** Sharper than this is not seen, and costs. */
const kMostPixelRatio = 2;

/** The scene with the robot in it. Draws only when something has changed. */
export class RobotView {
  readonly orbit: Orbit;

  private readonly renderer: WebGLRenderer;
  private readonly scene = new Scene();
  private readonly camera = new PerspectiveCamera(kFieldOfView, 1, 0.05, 20);
  private readonly figure = new Figure();
  private readonly sonar = new SonarFan();
  private readonly shadow = new ShadowMaterial({ opacity: 0.2 });
  private grid = new GridHelper();
  private colors = { near: "", far: "" };
  private hoist: number | undefined;
  private readonly state: RobotState = {};
  private readonly pace = new Pace();
  private readonly visible: WhileVisible;
  private drawnAt = -Infinity;
  private isDrawPending = false;

  /** Raises an Error when the browser offers no WebGL. */
  constructor(private readonly canvas: HTMLCanvasElement) {
    this.renderer = new WebGLRenderer({ canvas, antialias: true, alpha: true });
    this.renderer.outputColorSpace = SRGBColorSpace;
    this.renderer.shadowMap.enabled = true;
    this.renderer.shadowMap.type = PCFShadowMap;
    this.camera.up.set(0, 0, 1);
    this.addLights();
    this.addFloor();
    this.scene.add(this.figure.object);
    this.figure.attach(this.sonar.object);
    this.orbit = new Orbit(this.camera, canvas);
    this.orbit.onChange = () => {
      this.draw();
    };
    this.visible = new WhileVisible(canvas);
    this.visible.onAppear = () => {
      this.draw();
    };
    new ResizeObserver(() => {
      this.fit();
    }).observe(canvas);
    this.applyTheme();
  }

  /** Shows those parts of the state that are given. */
  show(state: RobotState): void {
    Object.assign(this.state, state);
    this.draw();
  }

  /** At which height the torso hangs, in metres; undefined when the robot stands or lies on its own. */
  setHoist(height: number | undefined): void {
    this.hoist = height;
  }

  /** Whether the ultrasonic emitters are on; nothing of them is drawn until this is known. */
  setSonarOn(isOn: boolean): void {
    this.sonar.show(isOn);
  }

  applyTheme(): void {
    const line = new Color(themeColor("floor-line"));
    this.scene.remove(this.grid);
    this.grid.dispose();
    this.grid = new GridHelper(2 * kFloorRadius, 4 * kFloorRadius * 2, line, line);
    this.grid.rotation.x = Math.PI / 2;
    this.scene.add(this.grid);
    this.scene.fog = new Fog(new Color(themeColor("floor")), 1.6, 4.2);
    this.shadow.opacity = Number(themeColor("floor-shadow"));
    this.colors = { near: themeColor("signal"), far: themeColor("accent") };
    this.draw();
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

  private fit(): void {
    const { clientWidth, clientHeight } = this.canvas;
    if (clientWidth === 0 || clientHeight === 0) {
      return;
    }
    this.renderer.setPixelRatio(Math.min(devicePixelRatio, kMostPixelRatio));
    this.renderer.setSize(clientWidth, clientHeight, false);
    this.camera.aspect = clientWidth / clientHeight;
    // A narrow view sees nearly as much to the sides as a square one.
    const half =
      Math.tan((kFieldOfView * Math.PI) / 360) / Math.min(this.camera.aspect * kNarrower, 1);
    this.camera.fov = (Math.atan(half) * 360) / Math.PI;
    this.camera.updateProjectionMatrix();
    this.draw();
  }

  /** Moves everything to where the state says. */
  private pose(): void {
    const { joints, inclination, touch, sonar } = this.state;
    if (joints !== undefined) {
      this.figure.setJoints(joints);
    }
    if (inclination !== undefined) {
      this.figure.setInclination(inclination);
    }
    if (touch !== undefined) {
      this.figure.setTouch(touch);
    }
    if (sonar !== undefined) {
      this.sonar.set(sonar, this.colors);
    }
    this.figure.place(this.hoist);
  }

  private draw(): void {
    if (this.isDrawPending || !this.visible.isVisible) {
      return;
    }
    this.isDrawPending = true;
    setTimeout(
      () => {
        const askedAt = performance.now();
        requestAnimationFrame(() => {
          this.pace.measured(performance.now() - askedAt);
          this.isDrawPending = false;
          this.pose();
          this.orbit.place();
          this.renderer.render(this.scene, this.camera);
          this.drawnAt = performance.now();
        });
      },
      Math.max(0, this.drawnAt + this.pace.interval - performance.now()),
    );
  }
}
