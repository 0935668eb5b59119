// The C# binding over a library: exit code 1, and what was wrong, for anything that is not as it should be.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Threading;
using Tarnquill;

static class Test
{
    static int failures;

    static void Expect(string what, object wanted, object found)
    {
        if (Equals(wanted, found)) return;
        Console.WriteLine("{0}: {1}, not {2}", what, found, wanted);
        ++failures;
    }

    static int Status(Action action)
    {
        try { action(); return 0; }
        catch (TarnquillException error) { return error.Status; }
        catch (ObjectDisposedException) { return Native.IMG_BAD_HANDLE; }
    }

    static void Forget()
    {
        for (int i = 0; i < 100; ++i) Image.Open("corpus/tiff/g4.tif");
    }

    static void Beside(ThreadStart work)
    {
        Thread[] threads = Enumerable.Range(0, 4).Select(i => new Thread(work)).ToArray();
        foreach (Thread thread in threads) thread.Start();
        foreach (Thread thread in threads) thread.Join();
    }

    static int Main(string[] arguments)
    {
        string name = Path.Combine(arguments[0], "Grüße.tif");
        using (Image page = Image.Open("corpus/tiff/g4.tif"), photo = Image.Open("corpus/pcx/rgb24.pcx"))
        {
            page.Deskew().Save(name, Native.IMG_TYPE_TIFF_G4);
            photo.Save(name);
            Expect("pages", 2, Image.Pages(name));
            using (Image second = Image.Open(name, 1)) Expect("bits", 24, second.Bits);
            byte[] row = photo.Row(0).Take(3 * photo.Width).ToArray(), inverted = photo.Invert().Row(0);
            Expect("inverted", true, row.Select(v => (byte)(255 - v)).SequenceEqual(inverted.Take(row.Length)));
            Expect("turned", photo.Height, Image.Open(File.ReadAllBytes("corpus/pcx/rgb24.pcx")).Rotate(90).Width);
            Expect("depth", Native.IMG_WRONG_DEPTH, Status(() => photo.Despeckle()));
        }
        Expect("missing", Native.IMG_CANNOT_OPEN, Status(() => Image.Open("missing.tif")));
        Image gone = Image.Open(name);
        gone.Dispose();
        Expect("disposed", Native.IMG_BAD_HANDLE, Status(() => gone.Flip()));

        // Structures, of bytes and of texts, and callbacks.
        img_format format = new img_format { size = Marshal.SizeOf(typeof(img_format)) };
        List<string> names = new List<string>();
        while (Native.IMG_get_format(names.Count, format) == 0) names.Add(format.name);
        Expect("formats", true, names.Contains("tiff-g4"));
        int rows = 0;
        img_progress_fn count = (context, value) => { ++rows; return 0; };
        using (Image photo = Image.Open("corpus/pcx/rgb24.pcx"))
        {
            img_view view = new img_view { bytes = Marshal.SizeOf(typeof(img_view)), width = 10, height = 10,
                                           fit = Native.IMG_FIT_STRETCH };
            img_layout layout = new img_layout();
            photo.Apply(h => Native.IMG_view_layout(h, view, layout));
            Expect("layout", 10, layout.height);
            photo.Apply(h => Native.IMG_set_statusbar(IntPtr.Zero, count, 1) + Native.IMG_flip_bitmap(h) +
                             Native.IMG_set_statusbar(IntPtr.Zero, null, 0));
            Expect("rows", photo.Height, rows);
        }
        GC.KeepAlive(count);

        // What nobody disposed of is deleted by the finaliser's thread, meanwhile others work.
        for (int round = 0; round < 6; ++round) Beside(Forget);
        GC.Collect();
        GC.WaitForPendingFinalizers();
        Expect("contexts left", true, Native.IMG_new_context() < 12);

        // One image in many hands.
        using (Image shared = Image.Open("corpus/pcx/rgb24.pcx"))
            Beside(() =>
            {
                for (int i = 0; i < 500; ++i)
                    if (Status(() => shared.Mirror()) != 0) Interlocked.Increment(ref failures);
            });
        return failures == 0 ? 0 : 1;
    }
}
