// Images that free themselves over the raw interface of Native.cs.
//
// Each thread makes its images in a context of its own; a call enters the context of its image, so that any thread,
// the finaliser's too, may use it: the others wait meanwhile.
using System;
using System.Runtime.InteropServices;
using System.Threading;

namespace Tarnquill
{
    public sealed class TarnquillException : Exception
    {
        public int Status { get; private set; }

        public TarnquillException(int status)
            : base(Marshal.PtrToStringAnsi(Native.IMG_status_text(status)))
        {
            Status = status;
        }

        public static int Check(int result)
        {
            if (result < 0) throw new TarnquillException(result);
            return result;
        }
    }

    // Lives for as long as one of its images does: each holds a reference.
    internal sealed class ContextHandle : SafeHandle
    {
        [ThreadStatic]
        private static ContextHandle own;

        private ContextHandle() : base(IntPtr.Zero, true)
        {
            SetHandle((IntPtr)TarnquillException.Check(Native.IMG_new_context()));
            Call(delegate
            {
                // Files are read and written as other programs do it; names are UTF-8.
                foreach (int option in new[] { Native.IMG_OPTION_READING, Native.IMG_OPTION_DETECTION,
                                               Native.IMG_OPTION_JPEG_WRITING, Native.IMG_OPTION_PDF_WRITING,
                                               Native.IMG_OPTION_SAFE_SAVING, Native.IMG_OPTION_UTF8_NAMES })
                    Native.IMG_set_option(option, 1);
                return 0;
            });
        }

        public static ContextHandle OfThread
        {
            get { return own ?? (own = new ContextHandle()); }
        }

        public override bool IsInvalid
        {
            get { return handle == IntPtr.Zero; }
        }

        // The result of a function that is called in this context.
        public int Call(Func<int> function)
        {
            lock (this)
            {
                int before = TarnquillException.Check(Native.IMG_use_context((int)handle));
                try { return function(); }
                finally { Native.IMG_use_context(before); }
            }
        }

        protected override bool ReleaseHandle()
        {
            return Native.IMG_delete_context((int)handle) == Native.IMG_OK;
        }
    }

    internal sealed class ImageHandle : SafeHandle
    {
        public readonly ContextHandle Context;

        public ImageHandle(ContextHandle context, Func<int> make) : base((IntPtr)(-1), true)
        {
            Context = context;
            bool held = false;
            context.DangerousAddRef(ref held);
            try { SetHandle((IntPtr)TarnquillException.Check(context.Call(make))); }
            catch { context.DangerousRelease(); throw; }
        }

        public override bool IsInvalid
        {
            get { return (int)handle < 0; }
        }

        protected override bool ReleaseHandle()
        {
            int result = Context.Call(delegate { return Native.IMG_delete_bitmap((int)handle); });
            Context.DangerousRelease();
            return result == Native.IMG_OK;
        }
    }

    public sealed class Image : IDisposable
    {
        private readonly ImageHandle handle;

        // What the last operation has answered: how many specks have gone, whether a page was turned.
        public int Result { get; private set; }

        private Image(ImageHandle handle)
        {
            this.handle = handle;
        }

        private static Image Make(Func<int> make)
        {
            return new Image(new ImageHandle(ContextHandle.OfThread, make));
        }

        // A page, from 0, of the bytes of a file.
        public static Image Open(byte[] file, int page = 0)
        {
            GCHandle pinned = GCHandle.Alloc(file, GCHandleType.Pinned);
            try
            {
                return Make(delegate
                {
                    return Native.IMG_decompress_bitmap_block(pinned.AddrOfPinnedObject(), (UIntPtr)file.Length, page);
                });
            }
            finally { pinned.Free(); }
        }

        // Later pages are taken from the whole file in memory.
        public static Image Open(string name, int page = 0)
        {
            if (page != 0) return Open(System.IO.File.ReadAllBytes(name), page);
            return Make(delegate { return Native.IMG_decompress_bitmap(Native.Text(name)); });
        }

        public static int Pages(string name)
        {
            return TarnquillException.Check(
                ContextHandle.OfThread.Call(delegate { return Native.IMGLOW_get_pages(Native.Text(name)); }));
        }

        // Any function of Native: image.Apply(h => Native.IMG_tone_bitmap(h, 10, 0, 100)).
        public Image Apply(Func<int, int> function)
        {
            bool held = false;
            try
            {
                handle.DangerousAddRef(ref held);  // refuses an image that was disposed of
                Result = TarnquillException.Check(
                    handle.Context.Call(delegate { return function((int)handle.DangerousGetHandle()); }));
                return this;
            }
            finally
            {
                if (held) handle.DangerousRelease();
            }
        }

        private int[] Sides()
        {
            int width = 0, height = 0, bits = 0;
            Apply(delegate(int h)
            {
                long address = (long)Native.IMG_bitmap_info(h, out width, out height, out bits);
                return address == Native.IMG_BAD_HANDLE || address == Native.IMG_OUT_OF_MEMORY ? (int)address : 0;
            });
            return new[] { width, height, bits };
        }

        public int Width
        {
            get { return Sides()[0]; }
        }

        public int Height
        {
            get { return Sides()[1]; }
        }

        public int Bits
        {
            get { return Sides()[2]; }
        }

        public Image Flip() { return Apply(Native.IMG_flip_bitmap); }
        public Image Mirror() { return Apply(Native.IMG_mirror_bitmap); }
        public Image Invert() { return Apply(Native.IMG_invert_bitmap); }
        public Image Promote24() { return Apply(Native.IMG_promote_24); }

        public Image Crop(int x, int y, int width, int height)
        {
            return Apply(h => Native.IMG_crop_bitmap(h, x, y, width, height));
        }

        // Clockwise, to hundredths of a degree.
        public Image Rotate(double degrees, int colour = -1, int mode = 0)
        {
            return Apply(h => Native.IMG_rotate_bitmap(h, (int)Math.Round(degrees * 100), colour, mode));
        }

        public Image Resize(int width, int height, int method = 1)
        {
            return Apply(h => Native.IMG_resize_bitmap(h, width, height, method));
        }

        public Image AdaptiveMono(int method = 1)
        {
            return Apply(h => Native.IMG_adaptive_mono(h, method, 0, 0));
        }

        public Image Deskew()
        {
            int angle;
            return Apply(h => Native.IMG_deskew_bitmap(h, 0, -1, -1, out angle));
        }

        public Image Despeckle(int width = 3, int height = 3, int mode = 5)
        {
            return Apply(h => Native.IMG_despeckle_bitmap(h, width, height, mode));
        }

        public void Save(string name, int code = Native.IMG_TYPE_BY_NAME)
        {
            Apply(h => Native.IMG_save_bitmap(h, Native.Text(name), code));
        }

        // A row of pixels from the top, as the library stores it.
        public byte[] Row(int y)
        {
            int[] sides = Sides();
            byte[] row = new byte[(int)(((long)sides[0] * sides[2] + 31) / 32 * 4)];
            GCHandle pinned = GCHandle.Alloc(row, GCHandleType.Pinned);
            try { Apply(h => Native.IMGLOW_get_raster(h, pinned.AddrOfPinnedObject(), y, row.Length)); }
            finally { pinned.Free(); }
            return row;
        }

        public void Dispose()
        {
            handle.Dispose();
        }
    }
}
