/* A viewer over SDL 2, of images from any source that the library reads: viewer_sdl FILE.
 *
 *   cc viewer_sdl.c $(pkg-config --cflags --libs tarnquill sdl2) -o viewer_sdl
 *
 * F fit, 1 pixel by pixel, + - or the wheel zoom, arrows or the mouse scroll, R turn, B C G brightness,
 * contrast, gamma (with Shift less), 0 none of them, PgUp PgDn pages, Q ends. */
#include <SDL.h>
#include <fcntl.h>
#include <stdio.h>
#include <tarnquill.h>
#include <unistd.h>

static const char* file;
static int32_t image = -1, page, brightness, contrast, gamma_percent;
static int is_animation;
static uint32_t next_frame_at; /* SDL's milliseconds */
static img_view view;

static void fit_picture(void) {
  memset(&view, 0, sizeof view);
  view.bytes = sizeof view;
  view.fit = IMG_FIT_WINDOW;
  view.flags = IMG_VIEW_BACKGROUND;
  view.background = 0x404040;
}

static int32_t decode_page(int32_t number) {
  const int stream = open(file, O_RDONLY);
  if (stream < 0) return IMG_CANNOT_OPEN;
  const int32_t decoded = IMG_decompress_bitmap_fd(stream, 0, number);
  close(stream);
  return decoded;
}

/* A page that is not there leaves the one that is seen. */
static int32_t open_page(int32_t number) {
  int32_t opened = number == 0 ? IMG_open_animation(file) : -1; /* of a GIF file */
  const int animated = opened >= 0;
  if (!animated) opened = decode_page(number);
  if (opened < 0) return opened;
  if (image >= 0) IMG_delete_bitmap(image);
  image = opened;
  is_animation = animated;
  page = number;
  next_frame_at = SDL_GetTicks() + 100;
  fit_picture();
  brightness = contrast = 0;
  gamma_percent = 100;
  return IMG_OK;
}

static void show_next_frame(void) {
  int32_t delay = 0, frame = 0;
  is_animation = IMG_next_frame(image, &delay, &frame) == 1;
  next_frame_at = SDL_GetTicks() + (uint32_t)delay;
}

/* The library writes into the texture, which is what the window shows. */
static int draw(SDL_Renderer* renderer, SDL_Texture* texture) {
  void* pixels = NULL;
  int stride = 0;
  if (SDL_LockTexture(texture, NULL, &pixels, &stride) != 0) return -1;
  const int32_t made =
      IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX, pixels, stride, 0, view.height);
  SDL_UnlockTexture(texture);
  if (made < 0) return made;
  SDL_RenderCopy(renderer, texture, NULL, NULL);
  SDL_RenderPresent(renderer);
  return 0;
}

static void zoom_at(int x, int y, int percent) {
  img_layout layout;
  if (IMG_view_layout(image, &view, &layout) < 0) return;
  const int32_t zoom =
      (layout.zoom_x > layout.zoom_y ? layout.zoom_x : layout.zoom_y) * percent / 100;
  IMG_zoom_view(image, &view, x, y, zoom < 10 ? 10 : zoom > 32000 ? 32000 : zoom);
}

/* A level goes by ten, within its limits. */
static int32_t moved(int32_t level, int down, int32_t least, int32_t most) {
  const int32_t to = level + (down ? -10 : 10);
  return to < least || to > most ? level : to;
}

static int press(SDL_Keysym key) {
  const int down = (key.mod & KMOD_SHIFT) != 0;
  switch (key.sym) {
    case SDLK_q:
      return 0;
    case SDLK_f:
      view.fit = IMG_FIT_WINDOW;
      break;
    case SDLK_1:
      view.fit = IMG_FIT_NONE;
      view.zoom = 1000;
      break;
    case SDLK_PLUS:
    case SDLK_KP_PLUS:
      zoom_at(view.width / 2, view.height / 2, 125);
      break;
    case SDLK_MINUS:
    case SDLK_KP_MINUS:
      zoom_at(view.width / 2, view.height / 2, 80);
      break;
    case SDLK_LEFT:
      IMG_scroll_view(image, &view, -40, 0);
      break;
    case SDLK_RIGHT:
      IMG_scroll_view(image, &view, 40, 0);
      break;
    case SDLK_UP:
      IMG_scroll_view(image, &view, 0, -40);
      break;
    case SDLK_DOWN:
      IMG_scroll_view(image, &view, 0, 40);
      break;
    case SDLK_PAGEUP:
      if (page > 0) open_page(page - 1);
      break;
    case SDLK_PAGEDOWN:
      open_page(page + 1);
      break;
    case SDLK_r:
      view.angle = (view.angle + 90) % 360;
      break;
    case SDLK_b:
      brightness = moved(brightness, down, -100, 100);
      break;
    case SDLK_c:
      contrast = moved(contrast, down, -100, 100);
      break;
    case SDLK_g:
      gamma_percent = moved(gamma_percent, down, 10, 1000);
      break;
    case SDLK_0:
      brightness = contrast = 0;
      gamma_percent = 100;
      break;
    default:
      break;
  }
  IMG_set_display_tone(image, brightness, contrast);
  IMG_set_gamma(image, gamma_percent);
  return 1;
}

/* 0: the end. */
static int handle(const SDL_Event* event) {
  int x, y;
  switch (event->type) {
    case SDL_QUIT:
      return 0;
    case SDL_KEYDOWN:
      return press(event->key.keysym);
    case SDL_MOUSEWHEEL:
      SDL_GetMouseState(&x, &y);
      zoom_at(x, y, event->wheel.y > 0 ? 125 : 80);
      return 1;
    case SDL_MOUSEMOTION:
      if (event->motion.state != 0) {
        IMG_scroll_view(image, &view, -event->motion.xrel, -event->motion.yrel);
      }
      return 1;
    default:
      return 1;
  }
}

/* Waits for what happens next, and does all that has happened since. */
static int wait_for_events(void) {
  SDL_Event event;
  const int32_t left = (int32_t)(next_frame_at - SDL_GetTicks());
  if (is_animation && left <= 0) {
    show_next_frame();
    return 1;
  }
  if (!SDL_WaitEventTimeout(&event, is_animation ? left : 1000)) return 1;
  do {
    if (!handle(&event)) return 0;
  } while (SDL_PollEvent(&event));
  return 1;
}

int main(int argc, char** argv) {
  SDL_Window* window;
  SDL_Renderer* renderer;
  SDL_Texture* texture = NULL;
  int status = 0;
  if (argc != 2) return fprintf(stderr, "usage: viewer_sdl FILE\n"), 2;
  file = argv[1];
  IMG_set_option(IMG_OPTION_READING, 1); /* as other programs read */
  const int32_t opened = open_page(0);
  if (opened < 0) return fprintf(stderr, "%s: status %d\n", file, (int)opened), 1;
  if (SDL_Init(SDL_INIT_VIDEO) != 0 ||
      SDL_CreateWindowAndRenderer(800, 600, SDL_WINDOW_RESIZABLE, &window, &renderer) != 0) {
    return fprintf(stderr, "%s\n", SDL_GetError()), 1;
  }
  SDL_SetWindowTitle(window, file);
  do {
    int width, height;
    SDL_GetRendererOutputSize(renderer, &width, &height);
    if (texture == NULL || width != view.width || height != view.height) {
      if (texture != NULL) SDL_DestroyTexture(texture);
      texture = SDL_CreateTexture(renderer, SDL_PIXELFORMAT_RGB888, SDL_TEXTUREACCESS_STREAMING,
                                  width, height);
      view.width = width;
      view.height = height;
    }
    if (texture == NULL || draw(renderer, texture) != 0) status = 1;
  } while (status == 0 && wait_for_events());
  SDL_Quit();
  IMG_delete_bitmap(image);
  return status;
}
