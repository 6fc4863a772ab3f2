// Reconstruction by dilation, and every pre-processing operation on odd inputs. Resizing,
// opening and smoothing are OpenCV calls, held by the golden reads.

#include "Dots_HessianProcess.h"
#include "ImgBinary.h"
#include "LogFilter.h"
#include "NoiseRemover.h"
#include "test_support.h"

using namespace testsupport;

TEST(Reconstruction, GrowsOnlyIntoConnectedMask) {
    cv::Mat mask = cv::Mat::zeros(20, 20, CV_8U), marker = cv::Mat::zeros(20, 20, CV_8U), out;
    mask(cv::Rect(1, 1, 6, 10)).setTo(200);
    mask(cv::Rect(10, 1, 6, 6)).setTo(120);
    marker.at<uchar>(5, 3) = 255;  // clipped to the mask's 200
    cv::Mat want = cv::Mat::zeros(20, 20, CV_8U);
    want(cv::Rect(1, 1, 6, 10)).setTo(200);
    ASSERT_EQ(NoiseRemover().imreconstruct(marker, mask, out), 0);
    EXPECT_EQ(cv::norm(out, want, cv::NORM_INF), 0);
    ASSERT_EQ(ImgBinary().imreconstruct(marker, mask, out), 0);
    EXPECT_EQ(cv::norm(out, want, cv::NORM_INF), 0);
    NoiseRemover n;
    cv::Mat empty, small(3, 3, CV_8U), nanMask(8, 8, CV_32F, cv::Scalar(NAN));
    EXPECT_EQ(n.imreconstruct(empty, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(small, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(nanMask, nanMask, out), 0);  // ends although NaN never compares
}

// Every operation, odd sizes, types and parameters: a result or an empty output, never a throw.
TEST(ImgprocRobust, OperationsNeverThrow) {
    for (cv::Size size : {cv::Size(0, 0), cv::Size(1, 1), cv::Size(9, 1), cv::Size(200, 49)})
        for (int type : {CV_8UC1, CV_8UC3, CV_16UC1, CV_32FC1, CV_64FC2}) {
            cv::Mat img(size, type, cv::Scalar::all(0)), out, m;
            if (!img.empty()) cv::RNG(type).fill(img, cv::RNG::UNIFORM, 0, 256);
            NoiseRemover n;
            ImgBinary b;
            Dots_HessianProcess h;
            LogFilter l;
            auto exercise = [&] {
                for (int k : {-1, 4, 301}) n.setMedfilterSize(k), n.medfilt2(img, out);
                for (double s : {-2.0, double(NAN), 1e9})
                    n.setGaussFilter_ksize({4, 4}), n.setGaussFilter_sigma(s),
                        n.gaussfilt2(img, out);
                n.imopen(img, out, cv::Mat::ones(301, 301, CV_8U));
                for (cv::Point p : {cv::Point(0, 5), cv::Point(-3, 2)})
                    n.setDnsample_size(p), n.ImgDnSample(img, out);
                n.imreconstruct(img, img, out);
                for (auto op : {&ImgBinary::image_binary, &ImgBinary::image_AdapMean_binary,
                                &ImgBinary::image_AdapGauss_binary})
                    (b.*op)(m = img.clone(), out);
                b.image_otsu_binary(m = img.clone(), out);
                b.grayimg_normal(m = img.clone());
                b.remove_board(m = img.clone());
                std::vector<cv::Point2f> c;
                b.blob_centroid(img, c);
                h.circshift(m = img.clone(), out, 3, -1000);
                h.resetBoundaryPixels(m);
                h.process(m, out);
                l.setSigma({0.4f, 2.0f});
                l.process(m = img.clone(), out);
            };
            EXPECT_NO_THROW(exercise()) << size << " type " << type;
        }
}
