/* A viewer for Windows: viewer_win32 [FILE]. F1 lists the keys. */
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <commdlg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarnquill.h>
#include <windowsx.h>

#define NO_IMAGE (-1)
#define WIPE_STEPS 40
#define FIRST_DELAY 100 /* milliseconds; the library tells that of the other frames */
#define FRAME_TIMER 1

static struct {
  HWND window;
  int32_t image;
  img_view view;
  int32_t brightness, contrast, gamma, effect;
  int is_animation;
  POINT drag, drag_now; /* where the mouse went down, and where it is */
  int drags;
} viewer = {.image = NO_IMAGE, .gamma = 100};

static void complain(const char* what, int32_t status) {
  char text[200];
  snprintf(text, sizeof text, "%s: status %d", what, (int)status);
  MessageBoxA(viewer.window, text, "Viewer", MB_OK | MB_ICONWARNING);
}

/* The view has changed: scroll bars and pixels follow. */
static void refresh(void) {
  RECT client;
  img_layout layout;
  GetClientRect(viewer.window, &client);
  viewer.view.width = client.right;
  viewer.view.height = client.bottom;
  if (viewer.image != NO_IMAGE && IMG_view_layout(viewer.image, &viewer.view, &layout) == IMG_OK) {
    SCROLLINFO info = {sizeof info, SIF_ALL, 0, 0, 0, 0, 0};
    viewer.view.scroll_x = layout.scroll_x;
    viewer.view.scroll_y = layout.scroll_y;
    info.nMax = layout.scroll_width > 0 ? layout.width - 1 : 0;
    info.nPage = (UINT)client.right;
    info.nPos = layout.scroll_x;
    SetScrollInfo(viewer.window, SB_HORZ, &info, TRUE);
    info.nMax = layout.scroll_height > 0 ? layout.height - 1 : 0;
    info.nPage = (UINT)client.bottom;
    info.nPos = layout.scroll_y;
    SetScrollInfo(viewer.window, SB_VERT, &info, TRUE);
  }
  InvalidateRect(viewer.window, NULL, FALSE);
}

/* Takes over the image; what a call gave that failed is said and forgotten. */
static void show_image(const char* what, int32_t image) {
  if (image < 0) {
    complain(what, image);
    return;
  }
  KillTimer(viewer.window, FRAME_TIMER);
  if (viewer.image != NO_IMAGE) IMG_delete_bitmap(viewer.image);
  viewer.image = image;
  viewer.is_animation = 0;
  memset(&viewer.view, 0, sizeof viewer.view);
  viewer.view.bytes = sizeof viewer.view;
  viewer.view.fit = IMG_FIT_WINDOW;
  viewer.view.flags = IMG_VIEW_BACKGROUND | IMG_VIEW_KEEP;
  viewer.view.background = 0x808080;
  viewer.brightness = viewer.contrast = 0;
  viewer.gamma = 100;
  SetWindowTextA(viewer.window, what);
  refresh();
}

static void open_file(const char* name) {
  const int32_t canvas = IMG_open_animation(name); /* of a GIF file */
  const char* title = name;
  for (const char* at = name; *at != '\0'; ++at) {
    if (*at == '\\' || *at == '/') title = at + 1;
  }
  show_image(title, canvas >= 0 ? canvas : IMG_decompress_bitmap(name));
  viewer.is_animation = canvas >= 0;
  if (viewer.is_animation) SetTimer(viewer.window, FRAME_TIMER, FIRST_DELAY, NULL);
}

static void next_frame(void) {
  int32_t delay = 0, frame = 0;
  KillTimer(viewer.window, FRAME_TIMER);
  if (IMG_next_frame(viewer.image, &delay, &frame) != 1) return; /* the last loop has ended */
  SetTimer(viewer.window, FRAME_TIMER, (UINT)delay, NULL);
  InvalidateRect(viewer.window, NULL, FALSE);
}

static void ask_for_file(void) {
  char name[MAX_PATH] = "";
  OPENFILENAMEA dialog = {0};
  dialog.lStructSize = sizeof dialog;
  dialog.hwndOwner = viewer.window;
  dialog.lpstrFile = name;
  dialog.nMaxFile = sizeof name;
  dialog.Flags = OFN_FILEMUSTEXIST;
  if (GetOpenFileNameA(&dialog)) open_file(name);
}

static void print_image(void) {
  const int32_t printed = IMG_print_pages(&viewer.image, 1, NULL, "Viewer", NULL, 1,
                                          NULL); /* in true size, or fitted */
  if (printed < 0) complain("Printing", printed);
}

/* The first page; the others, if there is a feeder, stay there. */
static int32_t IMG_CB_STD take_page(intptr_t context, int32_t image, int32_t page) {
  (void)context;
  (void)page;
  show_image("Scanned page", image);
  return IMG_OK;
}

static void scan_page(void) {
  int32_t scanned = IMG_scan_open(viewer.window, NULL);
  IMG_scan_set(IMG_SCAN_DIALOG, 1);
  IMG_scan_set(IMG_SCAN_MAX_PAGES, 1);
  if (scanned >= 0) scanned = IMG_scan_pages(take_page, 0);
  if (scanned < 0) complain("Scanning", scanned);
  IMG_scan_close();
}

static void wipe(void) {
  HDC context = GetDC(viewer.window);
  FillRect(context, &(RECT){0, 0, viewer.view.width, viewer.view.height},
           (HBRUSH)GetStockObject(BLACK_BRUSH));
  viewer.effect = viewer.effect % 15 + 1;
  IMG_display_wipe(viewer.image, context, 0, 0, viewer.view.width, viewer.view.height, &viewer.view,
                   viewer.effect, WIPE_STEPS);
  ReleaseDC(viewer.window, context);
}

static void zoom_at(int32_t x, int32_t y, int32_t percent) {
  img_layout layout;
  if (IMG_view_layout(viewer.image, &viewer.view, &layout) != IMG_OK) return;
  const int32_t zoom = layout.zoom_x > layout.zoom_y ? layout.zoom_x : layout.zoom_y;
  const int32_t wanted = zoom * percent / 100;
  IMG_zoom_view(viewer.image, &viewer.view, x, y,
                wanted < 10      ? 10
                : wanted > 32000 ? 32000
                                 : wanted);
}

static void help(void) {
  MessageBoxA(viewer.window,
              "O open, F fit, 1 pixel by pixel, + - or the wheel zoom, arrows scroll, R turn,\n"
              "B b brightness, C c contrast, G g gamma, 0 none of them, W wipe, P print,\n"
              "Ctrl+C copy, Ctrl+V paste, S scan; a rectangle by the mouse crops, U undoes it",
              "Viewer", MB_OK);
}

static void type_key(int key) {
  enum { kCopy = 3, kPaste = 22 }; /* with Ctrl */
  if (key == 'o') ask_for_file();
  if (key == kPaste) show_image("Clipboard", IMG_paste_from_clipboard(viewer.window));
  if (key == 's') scan_page();
  if (viewer.image == NO_IMAGE) return;
  switch (key) {
    case 'f':
      viewer.view.fit = IMG_FIT_WINDOW;
      break;
    case '1':
      viewer.view.fit = IMG_FIT_NONE;
      viewer.view.zoom = 1000;
      break;
    case '+':
      zoom_at(viewer.view.width / 2, viewer.view.height / 2, 125);
      break;
    case '-':
      zoom_at(viewer.view.width / 2, viewer.view.height / 2, 80);
      break;
    case 'r':
      viewer.view.angle = (viewer.view.angle + 90) % 360;
      break;
    case 'B':
      viewer.brightness += viewer.brightness < 100 ? 10 : 0;
      break;
    case 'b':
      viewer.brightness -= viewer.brightness > -100 ? 10 : 0;
      break;
    case 'C':
      viewer.contrast += viewer.contrast < 100 ? 10 : 0;
      break;
    case 'c':
      viewer.contrast -= viewer.contrast > -100 ? 10 : 0;
      break;
    case 'G':
      viewer.gamma += 20;
      break;
    case 'g':
      viewer.gamma -= viewer.gamma > 20 ? 20 : 0;
      break;
    case '0':
      viewer.brightness = viewer.contrast = 0;
      viewer.gamma = 100;
      break;
    case 'u':
      viewer.view.source_width = viewer.view.source_height = 0;
      viewer.view.source_x = viewer.view.source_y = 0;
      break;
    case 'w':
      wipe();
      return;
    case 'p':
      print_image();
      return;
    case kCopy:
      IMG_copy_to_clipboard(viewer.image, viewer.window);
      return;
    default:
      return;
  }
  IMG_set_display_tone(viewer.image, viewer.brightness, viewer.contrast);
  IMG_set_gamma(viewer.image, viewer.gamma);
  refresh();
}

static void press_key(WPARAM key) {
  const int32_t step = 40; /* pixels */
  if (key == VK_F1) help();
  if (viewer.image == NO_IMAGE) return;
  const int32_t dx = key == VK_LEFT ? -step : key == VK_RIGHT ? step : 0;
  const int32_t dy = key == VK_UP ? -step : key == VK_DOWN ? step : 0;
  if (dx == 0 && dy == 0) return;
  IMG_scroll_view(viewer.image, &viewer.view, dx, dy);
  refresh();
}

static void scroll(int bar, WPARAM what) {
  SCROLLINFO info = {sizeof info, SIF_ALL, 0, 0, 0, 0, 0};
  int32_t by = 0;
  GetScrollInfo(viewer.window, bar, &info);
  switch (LOWORD(what)) {
    case SB_LINEUP:
      by = -40;
      break;
    case SB_LINEDOWN:
      by = 40;
      break;
    case SB_PAGEUP:
      by = -(int32_t)info.nPage;
      break;
    case SB_PAGEDOWN:
      by = (int32_t)info.nPage;
      break;
    case SB_THUMBTRACK:
      by = info.nTrackPos - info.nPos;
      break;
    default:
      return;
  }
  if (viewer.image == NO_IMAGE) return;
  IMG_scroll_view(viewer.image, &viewer.view, bar == SB_HORZ ? by : 0, bar == SB_VERT ? by : 0);
  refresh();
}

/* What the mouse has framed becomes all that is shown. */
static void crop(void) {
  int32_t left, top, right, bottom;
  const POINT a = viewer.drag, b = viewer.drag_now;
  viewer.drags = 0;
  if (viewer.image == NO_IMAGE || abs(a.x - b.x) < 4 || abs(a.y - b.y) < 4) return;
  IMG_window_to_image(viewer.image, &viewer.view, a.x, a.y, &left, &top);
  IMG_window_to_image(viewer.image, &viewer.view, b.x, b.y, &right, &bottom);
  viewer.view.source_x = left < right ? left : right;
  viewer.view.source_y = top < bottom ? top : bottom;
  viewer.view.source_width = abs(right - left) + 1;
  viewer.view.source_height = abs(bottom - top) + 1;
  viewer.view.fit = IMG_FIT_WINDOW;
  refresh();
}

static void drag_to(LPARAM place) {
  HDC context = GetDC(viewer.window);
  RECT frame = {viewer.drag.x, viewer.drag.y, viewer.drag_now.x, viewer.drag_now.y};
  DrawFocusRect(context, &frame); /* a second time it vanishes */
  viewer.drag_now.x = frame.right = GET_X_LPARAM(place);
  viewer.drag_now.y = frame.bottom = GET_Y_LPARAM(place);
  DrawFocusRect(context, &frame);
  ReleaseDC(viewer.window, context);
}

static void paint(void) {
  PAINTSTRUCT area;
  HDC context = BeginPaint(viewer.window, &area);
  if (viewer.image == NO_IMAGE ||
      IMG_display_bitmap_iac(viewer.image, context, 0, 0, viewer.view.width, viewer.view.height,
                             &viewer.view) < 0) {
    FillRect(context, &area.rcPaint, (HBRUSH)GetStockObject(GRAY_BRUSH));
  }
  EndPaint(viewer.window, &area);
}

static LRESULT CALLBACK answer(HWND window, UINT message, WPARAM w, LPARAM l) {
  viewer.window = window;
  switch (message) {
    case WM_PAINT:
      paint();
      return 0;
    case WM_ERASEBKGND:
      return 1; /* the view paints all of it */
    case WM_SIZE:
      refresh();
      return 0;
    case WM_CHAR:
      type_key((int)w);
      return 0;
    case WM_KEYDOWN:
      press_key(w);
      return 0;
    case WM_TIMER:
      next_frame();
      return 0;
    case WM_HSCROLL:
      scroll(SB_HORZ, w);
      return 0;
    case WM_VSCROLL:
      scroll(SB_VERT, w);
      return 0;
    case WM_MOUSEWHEEL: {
      POINT at = {GET_X_LPARAM(l), GET_Y_LPARAM(l)};
      ScreenToClient(window, &at);
      if (viewer.image != NO_IMAGE) zoom_at(at.x, at.y, GET_WHEEL_DELTA_WPARAM(w) > 0 ? 125 : 80);
      refresh();
      return 0;
    }
    case WM_LBUTTONDOWN:
      viewer.drags = 1;
      viewer.drag.x = viewer.drag_now.x = GET_X_LPARAM(l);
      viewer.drag.y = viewer.drag_now.y = GET_Y_LPARAM(l);
      return 0;
    case WM_MOUSEMOVE:
      if (viewer.drags) drag_to(l);
      return 0;
    case WM_LBUTTONUP:
      if (viewer.drags) crop();
      return 0;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
    default:
      return DefWindowProcA(window, message, w, l);
  }
}

int main(int argc, char** argv) {
  const WNDCLASSA kind = {.lpfnWndProc = answer,
                          .hCursor = LoadCursor(NULL, IDC_CROSS),
                          .lpszClassName = "TarnquillViewer"};
  MSG message;
  IMG_set_option(IMG_OPTION_READING, 1); /* as other programs read */
  RegisterClassA(&kind);
  viewer.window = CreateWindowA(kind.lpszClassName, "Viewer", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                CW_USEDEFAULT, CW_USEDEFAULT, 800, 600, NULL, NULL, NULL, NULL);
  if (argc > 1) open_file(argv[1]);
  while (GetMessageA(&message, NULL, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
  if (viewer.image != NO_IMAGE) IMG_delete_bitmap(viewer.image);
  return 0;
}
